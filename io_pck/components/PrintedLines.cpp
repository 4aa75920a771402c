#include "PrintedLines.h"

#include "veld_module.h"

namespace veldor_io {

std::string FormatTime(VELDTimestamp t)
{
    char text[40];
    const unsigned long long magnitude = t < 0 ? 0ULL - static_cast<unsigned long long>(t) : t;
    std::snprintf(text, sizeof text, "%s%llu.%06llu", t < 0 ? "-" : "", magnitude / 1000000, magnitude % 1000000);
    return text;
}

std::string ElementInfo(VELDTimestamp elementTime, int index, int count)
{
    return "  elt=" + FormatTime(elementTime) + " #" + std::to_string(index) + "/" + std::to_string(count);
}

void LineFile::Open(VELDModule& module)
{
    Close();
    m_printed = 0;
    const VELDString path = module.GetStringProperty("file");
    m_out = stdout;
    if (path.Length() == 0) return;
    m_out = std::fopen(path.Beginning(), "w");
    if (!m_out) {
        m_out = stdout;
        module.Error((std::string("Cannot write to ") + path.Beginning()).c_str(), 1, VELDModule::ErrorGeneric);
    }
}

void LineFile::Printed(VELDModule& module, int lines)
{
    std::fflush(m_out);
    m_printed += lines;
    module.DirectSet(module.Property("printed"), m_printed);
}

void LineFile::Close()
{
    if (m_out && m_out != stdout) std::fclose(m_out);
    m_out = nullptr;
}

}  // namespace veldor_io
