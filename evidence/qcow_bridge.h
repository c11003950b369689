#pragma once
// libqcow behind a byte range: a QCOW2 disk of a virtual machine read as the
// raw disk it stands for. The library itself is known only to
// qcow_bridge.cpp, in the image module.
#include <memory>
#include <string>

#include "evidence/byte_range.h"

// Whether the file begins as a QCOW image; false without the image module.
bool is_qcow_image(std::string const& path);

// What the library does for a QCOW2 disk, behind an interface that the image
// module implements.
class qcow_disk_backend {
public:
    virtual ~qcow_disk_backend() = default;
    virtual bool open(std::string const& path) = 0;
    virtual std::string const& problem() const = 0;
    virtual byte_range const& bytes() const = 0;
};

// A QCOW2 disk. Without the image module, open fails and problem() says why.
class qcow_disk {
public:
    qcow_disk();
    qcow_disk(qcow_disk const&) = delete;
    qcow_disk& operator=(qcow_disk const&) = delete;

    // False, with the library's reason in problem(), when it can't be read.
    bool open(std::string const& path) { return m_backend && m_backend->open(path); }
    std::string const& problem() const { return m_backend ? m_backend->problem() : m_missing; }
    // The disk's bytes; valid while this object lives.
    byte_range const& bytes() const { return m_backend ? m_backend->bytes() : m_no_bytes; }

private:
    std::string m_missing; // why there is no backend; first, as the constructor fills it
    std::unique_ptr<qcow_disk_backend> m_backend;
    byte_range m_no_bytes;
};
