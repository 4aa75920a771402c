// Diagram scripts: their form, values, waits, and mistakes that stop a script
// before its diagram runs.
#include "graph_support.h"

#include <tuple>

#include "Script.h"
#include "ScriptRunner.h"
#include "veld.h"
#include "veld_property.h"

namespace {

std::string PackageFolder()
{
    std::string path = VELDOR_TEST_PACKAGE;
    return path.substr(0, path.rfind('/'));
}

// Parses and runs `text` on `engine` as the file "t.vdl" beside the package;
// the error, or "" when it all went well.
std::string RunText(veldor::Engine& engine, const std::string& text)
{
    veldor::Script script;
    std::string error;
    if (!veldor::Script::Parse(text, "t.vdl", PackageFolder(), &script, &error)) return error;
    veldor::ScriptRunner runner(engine);
    return runner.Run(script, &error) ? std::string() : error;
}

}  // namespace

// The scripts load the package themselves.
class ScriptTest : public GraphTest {
protected:
    ScriptTest() : GraphTest(false) {}
    std::string RunText(const std::string& text) { return ::RunText(engine, text); }
};

TEST(ScriptForm, MistakesOfFormNameTheLineAndNothingRuns)
{
    const struct {
        const char* line;
        const char* error;
    } cases[] = {
        {"create Generator", "t.vdl:3: \"create\" takes a model and a component name: create MODEL NAME"},
        {"bogus thing", "t.vdl:3: unknown statement \"bogus\""},
        {"set gen.label \"not closed", "t.vdl:3: a quoted text is not closed"},
        {"wait 5", "t.vdl:3: \"wait\" takes a duration (2s, 250ms, 1:30), \"interrupt\" or \"dead NAME...\", not \"5\""},
        {"wait dead", "t.vdl:3: \"wait\" takes a duration (2s, 250ms, 1:30), \"interrupt\" or \"dead NAME...\""},
        {"connect gen sink.iValue", "t.vdl:3: \"connect\" needs an output's full name such as gen.oValue, not \"gen\""},
        {"set period 5", "t.vdl:3: \"set\" needs a property's full name such as gen.oValue, not \"period\""},
        {"set gen.period 5 6", "t.vdl:3: \"set\" takes a property and one value: set NAME.PROPERTY VALUE (quote a "
                               "value with blanks)"},
        {"run now", "t.vdl:3: \"run\" takes nothing"},
        {"\"load\" x.pck", "t.vdl:3: a statement starts with a keyword, not with a quoted text"},
    };
    for (const auto& c : cases) {
        veldor::Script script;
        std::string error;
        std::string text = "load test_models.pck\ncreate Generator gen   # fine\n" + std::string(c.line) + "\nrun\n";
        EXPECT_FALSE(veldor::Script::Parse(text, "t.vdl", ".", &script, &error)) << c.line;
        EXPECT_EQ(error, c.error);
    }
}

TEST(ScriptForm, WordsCommentsAndDurations)
{
    veldor::Script script;
    std::string error;
    ASSERT_TRUE(veldor::Script::Parse("# a comment\n\n  set lab.label \"two words # not a comment\"  # one\n"
                                      "set lab.label = tail#kept\nconnect a.oX b.iY\ntrigger a.go \"\"\n"
                                      "wait dead a b\nwait interrupt\n",
                                      "t.vdl", "/base", &script, &error))
        << error;
    ASSERT_EQ(script.statements.size(), 6u);
    const auto* s = script.statements.data();
    EXPECT_EQ(std::make_tuple(s[0].line, s[0].words[1], s[0].quoted),
              std::make_tuple(3, "two words # not a comment", true));
    EXPECT_EQ(std::make_tuple(s[1].words[1], s[1].quoted), std::make_tuple("tail#kept", false));
    EXPECT_EQ(s[3].words, (std::vector<std::string>{"a.go", ""}));
    EXPECT_EQ(s[4].words, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(std::make_tuple(script.PathOf("p.pck"), script.PathOf("/abs/p.pck")),
              std::make_tuple("/base/p.pck", "/abs/p.pck"));
    const struct {
        const char* text;
        long long microseconds;
    } good[] = {{"2s", 2000000}, {"250ms", 250000}, {"1.5s", 1500000}, {"100us", 100},
                {"2m", 120000000}, {"1h", 3600000000LL}, {"1:30", 90000000}, {"1:02:03", 3723000000LL},
                {"0:00.5", 500000}};
    for (const auto& g : good) {
        long long us = -1;
        EXPECT_TRUE(veldor::Script::ParseDuration(g.text, &us)) << g.text;
        EXPECT_EQ(us, g.microseconds) << g.text;
    }
    for (const char* bad : {"5", "s", "-2s", "1:75", "1:2:3:4", "2 s", "1:", "ms", "1e3s"}) {
        long long us = 0;
        EXPECT_FALSE(veldor::Script::ParseDuration(bad, &us)) << bad;
    }
}

// A mistake that only the diagram can tell stops the script where it
// stands: what follows does not happen and nothing runs.
TEST(ScriptMistakes, MistakesBeforeRunStopTheScriptWithTheirLine)
{
    const struct {
        const char* line;
        const char* error;
    } cases[] = {
        {"create Foo foo", "t.vdl:5: unknown model \"Foo\""},
        {"set gen.speed 3", "t.vdl:5: unknown property \"gen.speed\""},
        {"set nobody.speed 3", "t.vdl:5: unknown component \"nobody\""},
        {"set gen.period fast", "t.vdl:5: property gen.period: it is an integer (decimal or 0x hexadecimal), not \"fast\""},
        {"set lab.enabled \"true\"", "t.vdl:5: property lab.enabled: it is a bool (true or false), not the string \"true\""},
        {"set lab.gain 1,5", "t.vdl:5: property lab.gain: it is a float (a number), not \"1,5\""},
        {"set sink.reader Sometimes", "t.vdl:5: property sink.reader: it is an enum of FifoReader, NeverSkippingReader, "
                                      "LastOrNextReader, Wait4NextReader, SamplingReader, and \"Sometimes\" is none of them"},
        {"set sink.received 3", "t.vdl:5: property sink.received: it is read-only"},
        {"connect lab.oLevel -> sink.iValue", "t.vdl:5: cannot connect lab.oLevel to sink.iValue: the output's type is "
                                              "Float, the input accepts Integer"},
        {"connect gen.oValue -> sink.iNothing", "t.vdl:5: unknown input \"sink.iNothing\""},
        {"trigger gen.nothing", "t.vdl:5: unknown action \"gen.nothing\""},
        {"load nothing.pck", nullptr},
    };
    for (const auto& c : cases) {
        veldor::Engine engine(Quiet());
        std::string error = RunText(engine, std::string("load test_models.pck\ncreate Generator gen\ncreate Counter sink\n"
                                                "create Labelled lab\n") +
                                    c.line + "\ncreate Generator later\nset lab.label x\nrun\nwait 10s\n");
        if (c.error)
            EXPECT_EQ(error, c.error);
        else
            EXPECT_EQ(error.rfind("t.vdl:5: cannot load package " + PackageFolder() + "/nothing.pck", 0), 0u) << error;
        EXPECT_EQ(engine.Graph().Find("later"), nullptr) << c.line;
        EXPECT_FALSE(engine.Graph().IsRunning());
        int state = 0;
        EXPECT_TRUE(engine.States().Get("gen", &state));
        EXPECT_EQ(state & VELD::LivingState, 0) << c.line;
    }
}

TEST_F(ScriptTest, ValuesOfEveryType)
{
    ASSERT_EQ(RunText("load test_models.pck\ncreate Generator gen\ncreate Labelled lab\ncreate Thrower bad\n"
                      "create Counter sink\n"
                      "set gen.period 0x10\nset lab.gain -2.5e-1\nset lab.enabled false\n"
                      "set lab.label \"with \\\"quotes\\\" and blanks\"\nset bad.where death\n"
                      "set sink.reader \"5|2|FifoReader|NeverSkippingReader|LastOrNextReader|Wait4NextReader|"
                      "SamplingReader\"\n"),
              "");
    EXPECT_EQ(Figure("gen.period"), 16);
    bool ok = false;
    EXPECT_EQ(engine.GetFloatProperty("lab.gain", &ok), -0.25);
    EXPECT_EQ(std::make_tuple(engine.GetBoolProperty("lab.enabled", &ok), ok), std::make_tuple(false, true));
    EXPECT_STREQ(VELD::Property("lab.label")->StringValue().Beginning(), "with \"quotes\" and blanks");
    EXPECT_STREQ(VELD::Property("bad.where")->StringValue().Beginning(), "death");
    EXPECT_EQ(Figure("sink.reader"), 2);
    EXPECT_EQ(Figure("sink.iValue.readerType"), VELD::LastOrNextReader);
    EXPECT_EQ(RunText("set sink.reader \"3|1|a|b\""),
              "t.vdl:1: property sink.reader: the enum text \"3|1|a|b\" does not fit: it declares 3 items and gives 2");
    EXPECT_EQ(RunText("set sink.reader 2|7|a|b"),
              "t.vdl:1: property sink.reader: the enum text \"2|7|a|b\" does not fit: its selection 7 is not among "
              "its 2 items");
}

TEST_F(ScriptTest, AScriptRunsWaitsAndShutsItsDiagramDown)
{
    veldor::Script script;
    ASSERT_TRUE(veldor::Script::ParseFile(std::string(VELDOR_TEST_SCRIPTS) + "/counting.vdl", &script, &error))
        << error;
    veldor::ScriptRunner runner(engine);
    auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(runner.Run(script, &error)) << error;
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
    EXPECT_GT(Figure("sink.received"), 0);
    EXPECT_EQ(Figure("Engine.shutdownTimeout"), 2000000);
    EXPECT_FALSE(engine.Graph().IsRunning());
    // Waiting for deaths; for an interruption: command_test.
    EXPECT_EQ(RunText("create Thrower bad\nrun\nwait dead bad\nshutdown\n"), "");
    EXPECT_TRUE(engine.Graph().IsDead("bad"));
    EXPECT_EQ(RunText("wait dead nobody"), "t.vdl:1: unknown component \"nobody\"");
}
