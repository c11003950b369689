#pragma once
// libvshadow (through libbfio) behind plain values: the shadow-copy stores
// of one NTFS volume, each a byte range that reads the volume as it was when
// the copy was taken. This is the one unit that knows those libraries.
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

class shadow_volume {
public:
    shadow_volume();
    ~shadow_volume();
    shadow_volume(shadow_volume const&) = delete;
    shadow_volume& operator=(shadow_volume const&) = delete;

    // Reads the shadow-copy catalog of the volume that `volume` reads; the
    // range must outlive this object. False when the volume has no
    // shadow-copy header (problem() empty) or its catalog can't be read
    // (problem() says why).
    bool open(byte_range const& volume);
    std::vector<shadow_store> const& stores() const { return m_stores; }
    std::string const& problem() const { return m_problem; }

private:
    struct handles;
    std::unique_ptr<handles> m_handles;
    std::vector<shadow_store> m_stores;
    std::string m_problem;
};
