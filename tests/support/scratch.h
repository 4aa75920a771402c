// What tests of every kind need around them: a folder of their own for their
// files, a file's whole content, and a bounded wait for a condition.
#ifndef VELDOR_TESTS_SCRATCH_H
#define VELDOR_TESTS_SCRATCH_H

#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace veldtest {

// A new folder in the temporary folder, removed with all it holds.
class ScratchDir {
public:
    explicit ScratchDir(const std::string& prefix = "veldor_test")
    {
        std::string pattern = (std::filesystem::temp_directory_path() / (prefix + ".XXXXXX")).string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        m_path = pattern;
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string& Path() const { return m_path; }
    std::string File(const std::string& name) const { return m_path + "/" + name; }
    std::string operator/(const std::string& name) const { return File(name); }

private:
    std::string m_path;
};

inline std::string ReadText(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

inline void WriteText(const std::string& path, std::string_view text)
{
    std::ofstream(path, std::ios::binary).write(text.data(), static_cast<std::streamsize>(text.size()));
}

// Polls `done` until it holds, for up to `seconds`: the bound is generous,
// the usual wait short.
inline bool Eventually(const std::function<bool()>& done, double seconds = 20)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace veldtest

#endif
