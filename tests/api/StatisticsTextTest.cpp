#include <event/StatisticsText.h>

#include <gmock/gmock.h>
#include <tivra.h>
#include <tp/Clock.h>

#include <memory>
#include <set>

#include "config/HandleAccess.h"
#include "session/StatisticsEventImpl.h"
#include "support/LogCapture.h"
#include "support/OpenMetricsCheck.h"

using namespace tivra;
using tivra_internal::StatisticsEventImpl;

namespace {

struct SilentHandler : SessionEventHandler, UserEventHandler {
    void onSessionEvent(const SessionEvent&) override {}
    void onUserEvent(const UserEvent&) override {}
};

class StatisticsTexts : public testing::Test {
protected:
    StatisticsTexts() {
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = 1000 + i;
        values[StatisticsEvent::PCT_FULL] = 7;
        values[StatisticsEvent::PEAK_PCT_FULL] = 100;
        values[StatisticsEvent::MSGS_IN] = UINT64_MAX;
    }
    ~StatisticsTexts() override {
        factory.destroySession(session);
        factory.destroyUserInfo(user);
    }

    [[nodiscard]] tivra_internal::HandlePtr<StatisticsEvent> event() {
        return tivra_internal::HandleAccess::make<StatisticsEvent>(
            std::make_unique<StatisticsEventImpl>(session, values));
    }

    LogCapture log;
    SilentHandler handler;
    APIFactory& factory = *APIFactory::getInstance();
    UserInfo& user = factory.createUserInfo("jane", "secret", handler);
    Session& session = factory.createSession(user, handler);
    StatisticsEventImpl::Values values{};
};

const char* const METRICS_OF_JSON =
    R"("in_messages_total":18446744073709551615,"out_messages_total":1001,"delivered_messages_total":1014,)"
    R"("dropped_bytes_total":1002,"hub_dropped_bytes_total":1003,)"
    R"("queue_fill_ratio":0.07,"queue_peak_fill_ratio":1.00,)"
    R"("in_100ms_messages_per_second":1006,"in_100ms_peak_messages_per_second":1007,)"
    R"("in_1s_messages_per_second":1008,"in_1s_peak_messages_per_second":1009,)"
    R"("out_100ms_messages_per_second":1010,"out_100ms_peak_messages_per_second":1011,)"
    R"("out_1s_messages_per_second":1012,"out_1s_peak_messages_per_second":1013,)"
    R"("delivered_100ms_messages_per_second":1015,"delivered_100ms_peak_messages_per_second":1016,)"
    R"("delivered_1s_messages_per_second":1017,"delivered_1s_peak_messages_per_second":1018})";

struct LabelCase {
    const char* name;
    StatisticsText::Labels labels;
    std::string json;        ///< what stands between the time and the metrics
    std::string openMetrics; ///< what stands between a metric's name and its value
};

void PrintTo(const LabelCase& parameter, std::ostream* out) {
    *out << parameter.name;
}

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

class StatisticsLabels : public StatisticsTexts, public testing::WithParamInterface<LabelCase> {};

} // namespace

TEST_P(StatisticsLabels, StandInBothFormsAndLeaveThemValid) {
    const tp::ManualClock clock(1739197800.5125);
    const LabelCase& parameter = GetParam();
    const auto statistics = event();
    EXPECT_EQ(StatisticsText::json(*statistics, parameter.labels),
              R"({"time":"2025-02-10T14:30:00.512Z",)" + withReplacements(parameter.json) + METRICS_OF_JSON);

    const std::string text = StatisticsText::openMetrics(*statistics, parameter.labels);
    const std::string labels = withReplacements(parameter.openMetrics);
    EXPECT_EQ(text.substr(0, text.find("# TYPE tivra_out_messages")),
              "# TYPE tivra_in_messages counter\n# UNIT tivra_in_messages messages\n"
              "# HELP tivra_in_messages Messages put into the receive queues.\n"
              "tivra_in_messages_total" +
                  labels + " 18446744073709551615\n");
    EXPECT_THAT(text, testing::HasSubstr("# TYPE tivra_queue_fill_ratio gauge\n"
                                         "# UNIT tivra_queue_fill_ratio ratio\n"
                                         "# HELP tivra_queue_fill_ratio Fill level of the fullest receive "
                                         "queue.\ntivra_queue_fill_ratio" +
                                         labels + " 0.07\n"));
    std::set<std::string> samples;
    ASSERT_NO_FATAL_FAILURE(checkOpenMetrics(text, samples));
    // The two forms have the same metrics with the same values.
    EXPECT_EQ(samples.size(), values.size());
    for (const std::string& sample : samples) {
        const std::size_t at = text.find("\n" + sample + labels + " ") + sample.size() + labels.size() + 2;
        const std::string value = text.substr(at, text.find('\n', at) - at);
        const std::string inJson = "\"" + sample.substr(6) + "\":" + value;
        EXPECT_THAT(METRICS_OF_JSON, testing::HasSubstr(inJson));
    }
    EXPECT_THAT(log.linesAboveDebug(), testing::IsEmpty()) << "a type that the event doesn't know";
}

INSTANTIATE_TEST_SUITE_P(Labels, StatisticsLabels, testing::ValuesIn(LABELS),
                         [](const auto& instance) { return instance.param.name; });
