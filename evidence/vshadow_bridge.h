#pragma once
// libvshadow (through libbfio) behind plain values: the shadow-copy stores
// of one NTFS volume, each a byte range that reads the volume as it was when
// the copy was taken. The libraries themselves are known only to
// vshadow_bridge.cpp, in the image module.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "evidence/byte_range.h"

struct shadow_store {
    std::uint32_t number = 0;  // 1-based, in catalog order (1 is normally the oldest)
    std::string identifier;    // the store's GUID as vshadowinfo prints it
    std::uint64_t created = 0; // FILETIME
    std::string problem;       // why the store can't be read; empty when it can
    byte_range bytes;          // the volume as the store keeps it
};

// What the libraries do for a volume's shadow copies, behind an interface
// that the image module implements.
class shadow_volume_backend {
public:
    virtual ~shadow_volume_backend() = default;
    virtual bool open(byte_range const& volume) = 0;
    virtual std::vector<shadow_store> const& stores() const = 0;
    virtual std::string const& problem() const = 0;
};

// The shadow copies of a volume. Without the image module, open fails and
// problem() says why.
class shadow_volume {
public:
    shadow_volume();
    shadow_volume(shadow_volume const&) = delete;
    shadow_volume& operator=(shadow_volume const&) = delete;

    // Reads the shadow-copy catalog of the volume that `volume` reads; the
    // range must outlive this object. False when the volume has no
    // shadow-copy header (problem() empty) or its catalog can't be read
    // (problem() says why).
    bool open(byte_range const& volume) { return m_backend && m_backend->open(volume); }
    std::vector<shadow_store> const& stores() const { return m_backend ? m_backend->stores() : m_no_stores; }
    std::string const& problem() const { return m_backend ? m_backend->problem() : m_missing; }

private:
    std::string m_missing; // why there is no backend; first, as the constructor fills it
    std::unique_ptr<shadow_volume_backend> m_backend;
    std::vector<shadow_store> m_no_stores;
};
