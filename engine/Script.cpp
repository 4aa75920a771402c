#include "Script.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace veldor {

namespace {

struct Word {
    std::string text;
    bool quoted;
};

// Splits a line into words; false with the reason for an unterminated
// quote.
bool SplitLine(const std::string& line, std::vector<Word>* words, std::string* why)
{
    size_t i = 0;
    while (i < line.size()) {
        char c = line[i];
        if (c == ' ' || c == '\t' || c == '\r') {
            ++i;
        } else if (c == '#') {
            return true;
        } else if (c == '"') {
            std::string text;
            ++i;
            while (i < line.size() && line[i] != '"') {
                if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) ++i;
                text += line[i++];
            }
            if (i == line.size()) {
                *why = "a quoted text is not closed";
                return false;
            }
            ++i;
            words->push_back(Word{text, true});
        } else {
            size_t end = line.find_first_of(" \t\r\"", i);
            if (end == std::string::npos) end = line.size();
            words->push_back(Word{line.substr(i, end - i), false});
            i = end;
        }
    }
    return true;
}

bool IsFullName(const Word& word)
{
    size_t dot = word.text.find('.');
    return !word.quoted && dot != std::string::npos && dot > 0 && dot + 1 < word.text.size();
}

bool IsDigits(const std::string& text)
{
    if (text.empty()) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    return true;
}

// A decimal number without sign or exponent: 12, 1.5.
bool ParseDecimal(const std::string& text, double* value)
{
    size_t dot = text.find('.');
    if (!IsDigits(text.substr(0, dot)) || (dot != std::string::npos && !IsDigits(text.substr(dot + 1)))) return false;
    *value = std::strtod(text.c_str(), nullptr);
    return true;
}

// The form of one statement from its words; the keyword is words[0].
bool Build(const std::vector<Word>& words, Statement* s, std::string* why)
{
    const std::string& keyword = words[0].text;
    const size_t n = words.size() - 1;  // arguments
    auto arg = [&words](size_t i) -> const Word& { return words[i + 1]; };
    auto fullName = [&](size_t i, const char* what) {
        if (IsFullName(arg(i))) return true;
        *why = "\"" + keyword + "\" needs " + what + " such as gen.oValue, not \"" + arg(i).text + "\"";
        return false;
    };
    if (words[0].quoted) {
        *why = "a statement starts with a keyword, not with a quoted text";
        return false;
    }
    if (keyword == "load") {
        s->kind = Statement::Load;
        if (n != 1) {
            *why = "\"load\" takes one package path";
            return false;
        }
        s->words = {arg(0).text};
    } else if (keyword == "create") {
        s->kind = Statement::Create;
        if (n != 2 || arg(0).quoted || arg(1).quoted) {
            *why = "\"create\" takes a model and a component name: create MODEL NAME";
            return false;
        }
        s->words = {arg(0).text, arg(1).text};
    } else if (keyword == "set") {
        s->kind = Statement::Set;
        bool equals = n == 3 && arg(1).text == "=" && !arg(1).quoted;
        if (n != 2 && !equals) {
            *why = "\"set\" takes a property and one value: set NAME.PROPERTY VALUE (quote a value with blanks)";
            return false;
        }
        if (!fullName(0, "a property's full name")) return false;
        const Word& value = arg(equals ? 2 : 1);
        s->words = {arg(0).text, value.text};
        s->quoted = value.quoted;
    } else if (keyword == "connect") {
        s->kind = Statement::Connect;
        bool arrow = n == 3 && arg(1).text == "->" && !arg(1).quoted;
        if (n != 2 && !arrow) {
            *why = "\"connect\" takes an output and an input: connect NAME.OUTPUT -> NAME.INPUT";
            return false;
        }
        size_t input = arrow ? 2 : 1;
        if (!fullName(0, "an output's full name") || !fullName(input, "an input's full name")) return false;
        s->words = {arg(0).text, arg(input).text};
    } else if (keyword == "trigger") {
        s->kind = Statement::Trigger;
        if (n != 1 && n != 2) {
            *why = "\"trigger\" takes an action and at most one argument: trigger NAME.ACTION [ARGUMENT]";
            return false;
        }
        if (!fullName(0, "an action's full name")) return false;
        s->words = {arg(0).text};
        if (n == 2) {
            s->words.push_back(arg(1).text);
            s->quoted = arg(1).quoted;
        }
    } else if (keyword == "run" || keyword == "shutdown") {
        s->kind = keyword == "run" ? Statement::Run : Statement::Shutdown;
        if (n != 0) {
            *why = "\"" + keyword + "\" takes nothing";
            return false;
        }
    } else if (keyword == "wait") {
        s->kind = Statement::Wait;
        if (n == 1 && arg(0).text == "interrupt") {
            s->waitKind = Statement::ForInterrupt;
        } else if (n >= 2 && arg(0).text == "dead") {
            s->waitKind = Statement::ForDeath;
            for (size_t i = 1; i < n; ++i) s->words.push_back(arg(i).text);
        } else if (n == 1 && Script::ParseDuration(arg(0).text, &s->microseconds)) {
            s->waitKind = Statement::ForDuration;
        } else {
            *why = "\"wait\" takes a duration (2s, 250ms, 1:30), \"interrupt\" or \"dead NAME...\"";
            if (n == 1 && arg(0).text != "dead") *why += ", not \"" + arg(0).text + "\"";
            return false;
        }
    } else {
        *why = "unknown statement \"" + keyword + "\"";
        return false;
    }
    return true;
}

}  // namespace

bool Script::ParseDuration(const std::string& text, long long* microseconds)
{
    double seconds = 0;
    if (text.find(':') != std::string::npos) {
        std::vector<std::string> parts;
        std::stringstream stream(text);
        for (std::string part; std::getline(stream, part, ':');) parts.push_back(part);
        if (text.back() == ':' || parts.size() < 2 || parts.size() > 3) return false;
        double last = 0;
        if (!ParseDecimal(parts.back(), &last) || last >= 60) return false;
        seconds = last;
        double unit = 60;
        for (size_t i = parts.size() - 1; i-- > 0; unit *= 60) {
            if (!IsDigits(parts[i]) || (i > 0 && std::atoi(parts[i].c_str()) >= 60)) return false;
            seconds += std::atoi(parts[i].c_str()) * unit;
        }
    } else {
        static const struct {
            const char* suffix;
            double seconds;
        } units[] = {{"us", 1e-6}, {"ms", 1e-3}, {"s", 1}, {"m", 60}, {"h", 3600}};
        bool found = false;
        for (const auto& unit : units) {
            size_t length = std::string(unit.suffix).size();
            if (text.size() <= length || text.compare(text.size() - length, length, unit.suffix) != 0) continue;
            double number = 0;
            // "2ms" ends with "s" too: the number must be all that remains.
            if (!ParseDecimal(text.substr(0, text.size() - length), &number)) continue;
            seconds = number * unit.seconds;
            found = true;
            break;
        }
        if (!found) return false;
    }
    *microseconds = static_cast<long long>(std::llround(seconds * 1e6));
    return true;
}

bool Script::Parse(const std::string& text, const std::string& fileName, const std::string& folder, Script* script,
                   std::string* error)
{
    script->fileName = fileName;
    script->folder = folder;
    script->statements.clear();
    std::stringstream stream(text);
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        std::vector<Word> words;
        std::string why;
        Statement statement;
        statement.line = number;
        if (!SplitLine(line, &words, &why) || (!words.empty() && !Build(words, &statement, &why))) {
            if (error) *error = script->Where(number, why);
            return false;
        }
        if (!words.empty()) script->statements.push_back(statement);
    }
    return true;
}

bool Script::ParseFile(const std::string& path, Script* script, std::string* error)
{
    std::ifstream file(path);
    if (!file) {
        if (error) *error = path + ": cannot read the script";
        return false;
    }
    std::stringstream text;
    text << file.rdbuf();
    size_t slash = path.find_last_of('/');
    return Parse(text.str(), path, slash == std::string::npos ? "." : path.substr(0, slash + 1), script, error);
}

std::string Script::Where(int line, const std::string& reason) const
{
    return fileName + ":" + std::to_string(line) + ": " + reason;
}

std::string Script::PathOf(const std::string& written) const
{
    if (written.empty() || written[0] == '/' || folder.empty()) return written;
    return folder.back() == '/' ? folder + written : folder + "/" + written;
}

}  // namespace veldor
