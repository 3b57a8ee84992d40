#include <event/StatisticsText.h>

#include <gmock/gmock.h>
#include <tp/Clock.h>

#include <memory>
#include <regex>
#include <string>

#include "config/HandleAccess.h"
#include "session/StatisticsEventImpl.h"
#include "support/LogCapture.h"

using namespace tivra;
using tivra_internal::StatisticsEventImpl;

namespace {

const std::string METRICS_OF_JSON =
    R"("in_messages_total":18446744073709551615,"out_messages_total":1001,"delivered_messages_total":1014,)"
    R"("dropped_bytes_total":1002,"hub_dropped_bytes_total":1003,)"
    R"("queue_fill_ratio":0.07,"queue_peak_fill_ratio":1.00,)"
    R"("in_100ms_messages_per_second":1006,"in_100ms_peak_messages_per_second":1007,)"
    R"("in_1s_messages_per_second":1008,"in_1s_peak_messages_per_second":1009,)"
    R"("out_100ms_messages_per_second":1010,"out_100ms_peak_messages_per_second":1011,)"
    R"("out_1s_messages_per_second":1012,"out_1s_peak_messages_per_second":1013,)"
    R"("delivered_100ms_messages_per_second":1015,"delivered_100ms_peak_messages_per_second":1016,)"
    R"("delivered_1s_messages_per_second":1017,"delivered_1s_peak_messages_per_second":1018})";

/// The same metrics as OpenMetrics wants them: a family's name ends with its unit, and the sample of a
/// counter adds "_total" to that.
std::string openMetricsOf(const std::string& labels) {
    static const std::regex metric(
        R"re("(([a-z0-9_]+?_(messages|bytes|ratio|messages_per_second))(_total)?)":([0-9.]+))re");
    std::string text;
    for (std::sregex_iterator it(METRICS_OF_JSON.begin(), METRICS_OF_JSON.end(), metric), end; it != end;
         ++it) {
        const std::smatch& part = *it;
        const std::string family = "tivra_" + part.str(2);
        text += "# TYPE " + family + (part[4].matched ? " counter" : " gauge") + "\n# UNIT " + family + " " +
                part.str(3) + "\n# HELP " + family + "\ntivra_" + part.str(1) + labels + " " + part.str(5) +
                "\n";
    }
    return text + "# EOF\n";
}

struct LabelCase {
    const char* name;
    StatisticsText::Labels labels;
    std::string json;        ///< what stands between the time and the metrics
    std::string openMetrics; ///< what stands between a metric's name and its value
};

const LabelCase LABELS[] = {
    {"None", {}, "", ""},
    {"Two",
     {{"application", "pricer"}, {"session", "a b"}},
     R"("labels":{"application":"pricer","session":"a b"},)",
     R"({application="pricer",session="a b"})"},
    {"QuotesBackslashesAndControls",
     {{"a", "say \"hi\" to C:\\new\nline\t\x01"}},
     R"("labels":{"a":"say \"hi\" to C:\\new\u000aline\u0009\u0001"},)",
     "{a=\"say \\\"hi\\\" to C:\\\\new\\nline\t\x01\"}"},
    {"EmptyValueAndLongestSequences",
     {{"_", ""}, {"u", "\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF"}},
     "\"labels\":{\"_\":\"\",\"u\":\"\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF\"},",
     "{_=\"\",u=\"\xC3\xA9\xE2\x82\xAC\xF4\x8F\xBF\xBF\"}"},
    // A lone continuation, an overlong slash, half a euro, a surrogate, and a number beyond the last.
    {"BytesThatAreNotUtf8",
     {{"u", "\x80|\xC0\xAF|\xE2\x82|\xED\xA0\x80|\xF4\x90\x80\x80|\xE2\x82"}},
     "\"labels\":{\"u\":\"?|??|??|???|????|??\"},",
     "{u=\"?|??|??|???|????|??\"}"},
    {"NamesThatAreNone",
     {{"", "1"}, {"1a", "1"}, {"a-b", "1"}, {"__a", "1"}, {"\xC3\xA9", "1"}, {"a\"} 1\n", "1"}},
     "",
     ""},
    {"NamesThatComeTwice",
     {{"a", "first"}, {"a1_", "1"}, {"a", "second"}},
     R"("labels":{"a":"first","a1_":"1"},)",
     R"({a="first",a1_="1"})"},
};

std::string withReplacements(std::string text) {
    for (std::size_t at = text.find('?'); at != std::string::npos; at = text.find('?', at))
        text.replace(at, 1, "\xEF\xBF\xBD");
    return text;
}

TEST(StatisticsText, LabelsStandInBothFormsAndLeaveThemValid) {
    StatisticsEventImpl::Values values{};
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = 1000 + i;
    values[StatisticsEvent::PCT_FULL] = 7;
    values[StatisticsEvent::PEAK_PCT_FULL] = 100;
    values[StatisticsEvent::MSGS_IN] = UINT64_MAX;
    const tp::ManualClock clock(1739197800.5125);
    LogCapture log;
    void* session = nullptr; // an event knows its session by the address alone
    const auto event = tivra_internal::HandleAccess::make<StatisticsEvent>(
        std::make_unique<StatisticsEventImpl>(reinterpret_cast<Session&>(session), values));
    // Any help that needs no escapes will do.
    const std::regex help("(# HELP [a-z0-9_]+) [^\\\\\n]+\n");
    for (const LabelCase& row : LABELS) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(StatisticsText::json(*event, row.labels),
                  R"({"time":"2025-02-10T14:30:00.512Z",)" + withReplacements(row.json) + METRICS_OF_JSON);
        EXPECT_EQ(std::regex_replace(StatisticsText::openMetrics(*event, row.labels), help, "$1\n"),
                  openMetricsOf(withReplacements(row.openMetrics)));
    }
    EXPECT_THAT(log.linesAboveDebug(), testing::IsEmpty()) << "a type that the event doesn't know";
}

} // namespace
