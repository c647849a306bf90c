// The check's reports for results whose text would break them: XML metacharacters, control
// characters and invalid UTF-8 in sensor names and details.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>

#include "tools/check/CheckReport.h"
#include "tools/check/RuleCatalogue.h"

namespace kelvane::tools::check {
namespace {

// Rule ids are constants (RuleId has no conversion from text); the catalogue holds each once,
// in a known group, with a source and a summary, and finds it by its text.
TEST(CheckReportTest, EveryRuleIdIsInTheCatalogueOnce) {
    std::set<std::string> seen;
    for (const RuleInfo& rule : ruleCatalogue()) {
        EXPECT_TRUE(seen.insert(rule.id.str()).second) << rule.id.str();
        const std::string group = ruleGroup(rule.id.str());
        EXPECT_TRUE(group == "list" || group == "commands" || group == "stream" || group == "cts" ||
                    group == "proxy")
            << rule.id.str();
        EXPECT_EQ(findRule(rule.id.str()), &rule);
        EXPECT_NE(std::string(rule.source), "");
    }
    EXPECT_EQ(findRule("stream.cout"), nullptr);
    static_assert(!std::is_convertible_v<const char*, RuleId>, "ids are constants, not text");
}

std::vector<CheckResult> awkwardResults() {
    return {
        {"stream.count", "*StreamingOperation*", "stream", "A <b> & \"c\" 'd' @ 20 ms", 1,
         Verdict::kFail, "3 < 25 & \x01 bell\x07"},
        {"list.name", "SensorListValid", "list", "bad \xff utf-8", 2, Verdict::kPass, ""},
        {"commands.flush-inactive", "FlushInactiveSensor", "commands", "x", 2, Verdict::kDeviation,
         "OK with 1 completion </system-out>"},
        {"stream.norm", "*StreamingOperation*", "stream", "y", 3, Verdict::kSkip, "no <norm>"},
    };
}

TEST(CheckReportTest, JUnitStaysWellFormedAndCountsEveryVerdict) {
    char path[] = "/tmp/check_report_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    const std::string xml = resultJUnit(awkwardResults(), 1.5);
    ASSERT_EQ(write(fd, xml.data(), xml.size()), static_cast<ssize_t>(xml.size()));
    close(fd);
    const std::string lint = std::string(XMLLINT_PATH) + " --noout " + path + " 2>&1";
    EXPECT_EQ(std::system(lint.c_str()), 0) << xml;
    unlink(path);

    EXPECT_NE(xml.find("tests=\"4\" failures=\"1\" errors=\"0\" skipped=\"1\""), std::string::npos)
        << xml;
    EXPECT_NE(xml.find("message=\"3 &lt; 25 &amp; ? bell?\""), std::string::npos) << xml;
    EXPECT_NE(xml.find("DEVIATION: OK with 1 completion &lt;/system-out&gt;"), std::string::npos)
        << xml;
    // Groups in catalogue order: list, commands, stream.
    EXPECT_LT(xml.find("name=\"list\""), xml.find("name=\"commands\""));
    EXPECT_LT(xml.find("name=\"commands\""), xml.find("name=\"stream\""));
}

TEST(CheckReportTest, JsonLinesParseBackAndTableSummarizes) {
    std::stringstream lines(resultJsonLines(awkwardResults()));
    std::string line;
    size_t count = 0;
    while (std::getline(lines, line)) {
        const nlohmann::json parsed = nlohmann::json::parse(line, nullptr, false);
        ASSERT_FALSE(parsed.is_discarded()) << line;
        EXPECT_TRUE(parsed.contains("verdict"));
        ++count;
    }
    EXPECT_EQ(count, 4u);
    const std::string table = resultTable(awkwardResults());
    EXPECT_NE(table.find("stream: 2 results: 0 PASS, 1 FAIL, 1 SKIP, 0 DEVIATION\n"),
              std::string::npos)
        << table;
    EXPECT_NE(table.find("\n4 results: 1 PASS, 1 FAIL, 1 SKIP, 1 DEVIATION"), std::string::npos)
        << table;
}

TEST(CheckReportTest, WorstFirstKeepsRuleOrderWithinAVerdict) {
    std::vector<CheckResult> results = awkwardResults();
    results.push_back({"list.fifo", "SensorListValid", "list", "z", 4, Verdict::kFail, "8 > 4"});
    results.push_back({"commands.flush", "FlushSensor", "commands", "z", 4, Verdict::kPass, ""});
    std::vector<std::string> order;
    for (const CheckResult& r : worstFirst(results)) {
        order.push_back(std::string(verdictName(r.verdict)) + " " + r.rule);
    }
    EXPECT_EQ(order, (std::vector<std::string>{
                         "FAIL list.fifo", "FAIL stream.count", "DEVIATION commands.flush-inactive",
                         "SKIP stream.norm", "PASS list.name", "PASS commands.flush"}));
}

}  // namespace
}  // namespace kelvane::tools::check
