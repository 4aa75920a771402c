// The diagram script parser on arbitrary text: it either parses or says
// where and why it stopped, and never crashes or reads outside the text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Script.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    veldor::Script script;
    std::string error;
    if (veldor::Script::Parse(text, "fuzz.vdl", "/scripts", &script, &error)) {
        for (const veldor::Statement& statement : script.statements) {
            if (statement.kind == veldor::Statement::Load) script.PathOf(statement.words.at(0));
            if (statement.line < 1) __builtin_trap();
        }
    } else if (error.rfind("fuzz.vdl:", 0) != 0) {
        __builtin_trap();  // every error names the file and the line
    }
    long long microseconds = 0;
    veldor::Script::ParseDuration(text, &microseconds);
    return 0;
}
