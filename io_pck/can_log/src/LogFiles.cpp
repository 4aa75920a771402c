#include "can_log/LogFiles.h"

#include "can_log/AscReader.h"
#include "can_log/AscWriter.h"
#include "can_log/BlfReader.h"
#include "can_log/BlfWriter.h"
#include "can_log/CanUtilsLogReader.h"
#include "can_log/CanUtilsLogWriter.h"
#include "TextScan.h"

namespace veldor::canlog {

namespace {

bool KnownFormat(const std::string& path, std::string& error, LogFormat& format)
{
    const std::optional<LogFormat> found = LogFormatOf(path);
    if (!found) {
        error = "unknown log format of " + path + ": the extension is none of .asc, .log and .blf";
        return false;
    }
    format = *found;
    return true;
}

}  // namespace

std::optional<LogFormat> LogFormatOf(std::string_view path)
{
    const std::size_t dot = path.rfind('.');
    if (dot == std::string_view::npos || path.find('/', dot) != std::string_view::npos) return std::nullopt;
    const std::string_view extension = path.substr(dot + 1);
    if (EqualsNoCase(extension, "asc")) return LogFormat::Asc;
    if (EqualsNoCase(extension, "log")) return LogFormat::CanUtilsLog;
    if (EqualsNoCase(extension, "blf")) return LogFormat::Blf;
    return std::nullopt;
}

std::unique_ptr<FrameReader> OpenFrameReader(const std::string& path, std::string& error, const ReaderOptions& options)
{
    LogFormat format;
    if (!KnownFormat(path, error, format)) return nullptr;
    switch (format) {
    case LogFormat::Asc: return AscReader::Open(path, error, options);
    case LogFormat::CanUtilsLog: return CanUtilsLogReader::Open(path, error, options);
    case LogFormat::Blf: return BlfReader::Open(path, error, options);
    }
    return nullptr;
}

std::unique_ptr<FrameWriter> OpenFrameWriter(const std::string& path, std::string& error, const WriterOptions& options)
{
    LogFormat format;
    if (!KnownFormat(path, error, format)) return nullptr;
    switch (format) {
    case LogFormat::Asc: return AscWriter::Open(path, error, options);
    case LogFormat::CanUtilsLog: return CanUtilsLogWriter::Open(path, error, options);
    case LogFormat::Blf: return BlfWriter::Open(path, error, options);
    }
    return nullptr;
}

}  // namespace veldor::canlog
