#pragma once
// libqcow behind a byte range: a QCOW2 disk of a virtual machine read as the
// raw disk it stands for. This is the one unit that knows the library.
#include <memory>
#include <string>

#include "evidence/byte_range.h"

// Whether the file begins as a QCOW image.
bool is_qcow_image(std::string const& path);

class qcow_disk {
public:
    qcow_disk();
    ~qcow_disk();
    qcow_disk(qcow_disk const&) = delete;
    qcow_disk& operator=(qcow_disk const&) = delete;

    // False, with the library's reason in problem(), when it can't be read.
    bool open(std::string const& path);
    std::string const& problem() const { return m_problem; }
    // The disk's bytes; valid while this object lives.
    byte_range const& bytes() const { return m_bytes; }

private:
    struct handles;
    std::unique_ptr<handles> m_handles;
    byte_range m_bytes;
    std::string m_problem;
};
