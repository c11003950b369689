#pragma once
// A fresh folder under $TMPDIR (or /tmp), removed with all it holds when the
// object goes: no test leaves files behind, however it ends. A process that
// cannot make one stops at once.
#include <string>

class temp_folder {
public:
    explicit temp_folder(std::string const& tag);
    ~temp_folder();
    temp_folder(temp_folder const&) = delete;
    temp_folder& operator=(temp_folder const&) = delete;

    // The folder, without a separator at its end.
    std::string const& path() const { return m_path; }
    // A name inside the folder.
    std::string operator/(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};
