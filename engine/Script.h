// Diagram scripts (".vdl" files): one statement a line, "#" starts a comment
// where a word could start, words are separated by blanks, and a word
// between double quotes may hold blanks and "#" (\" and \\ inside).
//
//   load PATH                     a package file, relative to the script's folder
//   create MODEL NAME             a component
//   set NAME.PROPERTY VALUE       a property; "Engine.<name>" for the engine's
//   connect OUTPUT [->] INPUT     full names: gen.oValue -> sink.iValue
//   trigger NAME.ACTION [ARG]     an action, with its argument
//   run                           starts the diagram
//   wait DURATION                 2s, 250ms, 1.5s, 100us, 2m, 1h, 1:30, 1:02:03
//   wait interrupt                until Ctrl-C
//   wait dead NAME...             until these components are dead
//   shutdown                      stops the diagram
//
// Parsing reads the whole text and checks the form of every statement;
// what the names refer to is checked when a statement runs (ScriptRunner).
// Every error reads "<file>:<line>: <reason>".
#ifndef VELDOR_ENGINE_SCRIPT_H
#define VELDOR_ENGINE_SCRIPT_H

#include <string>
#include <vector>

namespace veldor {

struct Statement {
    enum Kind { Load, Create, Set, Connect, Trigger, Run, Wait, Shutdown };
    enum WaitKind { ForDuration, ForInterrupt, ForDeath };

    Kind kind;
    int line;
    // load: the path; create: model, name; set: full name, value; connect:
    // output, input; trigger: full name and, when given, the argument;
    // wait dead: the components' names.
    std::vector<std::string> words;
    // The value of set, the argument of trigger: written between quotes.
    bool quoted = false;
    WaitKind waitKind = ForDuration;
    long long microseconds = 0;
};

class Script {
public:
    // Parses `text`, whose errors name `fileName`; relative package paths
    // are taken from `folder`. False, with "<file>:<line>: <reason>" in
    // `*error`, at the first statement that is not well formed.
    static bool Parse(const std::string& text, const std::string& fileName, const std::string& folder, Script* script,
                      std::string* error);
    // Reads and parses a file; its folder is the base of relative paths.
    static bool ParseFile(const std::string& path, Script* script, std::string* error);
    // "2s", "250ms", "1.5s", "100us", "2m", "1h", "1:30", "1:02:03".
    static bool ParseDuration(const std::string& text, long long* microseconds);

    // "<file>:<line>: <reason>".
    std::string Where(int line, const std::string& reason) const;
    // A package path as written, taken from the script's folder when
    // relative.
    std::string PathOf(const std::string& written) const;

    std::string fileName;
    std::string folder;
    std::vector<Statement> statements;
};

}  // namespace veldor

#endif
