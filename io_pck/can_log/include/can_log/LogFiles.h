// Readers and writers chosen by the file's extension: ".asc" for ASC text
// logs, ".log" for can-utils logs, ".blf" for binary logging files, in any
// letter case.
#ifndef VELDOR_CAN_LOG_LOG_FILES_H
#define VELDOR_CAN_LOG_LOG_FILES_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "can_log/FrameReader.h"
#include "can_log/FrameWriter.h"
#include "can_log/LogOptions.h"

namespace veldor::canlog {

enum class LogFormat { Asc, CanUtilsLog, Blf };

std::optional<LogFormat> LogFormatOf(std::string_view path);

// Null if the extension is unknown or the file cannot be opened (or
// created); `error` says which.
std::unique_ptr<FrameReader> OpenFrameReader(const std::string& path, std::string& error,
                                             const ReaderOptions& options = ReaderOptions());
std::unique_ptr<FrameWriter> OpenFrameWriter(const std::string& path, std::string& error,
                                             const WriterOptions& options = WriterOptions());

}  // namespace veldor::canlog

#endif
