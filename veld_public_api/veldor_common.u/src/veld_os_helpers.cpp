#include "veld_os_helpers.h"

namespace {

// Gives a conversion's block back on every path.
class LocaleBlockGuard {
public:
    explicit LocaleBlockGuard(char* block) : m_block(block) {}
    LocaleBlockGuard(const LocaleBlockGuard&) = delete;
    LocaleBlockGuard& operator=(const LocaleBlockGuard&) = delete;
    ~LocaleBlockGuard() { VELDIconv::releaseLocale(m_block); }
    const char* get() const { return m_block; }

private:
    char* m_block;
};

}  // namespace

// A failed conversion gives null, and std::string refuses to be built from
// null: that failure is the caller's to see.
std::string VELDStringHelper::UTF8ToLocale(const char* text)
{
    LocaleBlockGuard block(VELDIconv::UTF8ToLocale(text));
    return std::string(block.get());
}

std::string VELDStringHelper::UTF8ToLocale(const VELDString& text) { return UTF8ToLocale(text.Beginning()); }

VELDString VELDStringHelper::LocaleToUTF8(const char* text)
{
    LocaleBlockGuard block(VELDIconv::UTF8ToLocale(text));
    return VELDString(block.get());
}

VELDString VELDStringHelper::LocaleToUTF8(const std::string& text) { return LocaleToUTF8(text.c_str()); }
