#include <data/DateTime.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>

namespace tivra {
namespace {

std::string textOf(const DateTime& moment) {
    const Date& date = moment.date();
    const Time& time = moment.time();
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d%03d%03d", date.year(), date.month(),
                  date.day(), time.hour(), time.minute(), time.second(), time.millisecond(),
                  time.microsecond(), time.nanosecond());
    return text;
}

TEST(DateTime, SecondsOfTheEpochBecomeDateAndTimeTo10Microseconds) {
    struct Case {
        double seconds;
        const char* expected;
    };
    const Case cases[] = {
        {0.0, "1970-01-01 00:00:00.000000000"},
        {1.5, "1970-01-01 00:00:01.500000000"},
        {1.12345, "1970-01-01 00:00:01.123450000"},
        {1.123454, "1970-01-01 00:00:01.123450000"},
        {1.123456, "1970-01-01 00:00:01.123460000"},
        {1.999999, "1970-01-01 00:00:02.000000000"},
        {59.999999, "1970-01-01 00:01:00.000000000"},
        {1381152600.25, "2013-10-07 13:30:00.250000000"},
        {951782399.0, "2000-02-28 23:59:59.000000000"},
        {951782400.0, "2000-02-29 00:00:00.000000000"},
        // Before 1970 the cut toward zero rounds up.
        {-1.0, "1969-12-31 23:59:59.000010000"},
        {-0.5, "1969-12-31 23:59:59.500010000"},
        {-1.25, "1969-12-31 23:59:58.750010000"},
        {-62135596800.0, "0001-01-01 00:00:00.000000000"},
        {253402300799.0, "9999-12-31 23:59:59.000000000"},
    };
    for (const Case& c : cases) {
        const DateTime moment(c.seconds);
        EXPECT_EQ(textOf(moment), c.expected) << c.seconds;
        EXPECT_FALSE(moment.hasDate());
        EXPECT_FALSE(moment.hasTime());
    }
}

TEST(DateTime, OutsideTheYears1To9999AllFieldsAre0) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double seconds : {-62135596800.5, 253402300799.5, 1e300, -1e300, infinity, -infinity,
                                 std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(textOf(DateTime(seconds)), "0000-00-00 00:00:00.000000000") << seconds;
    EXPECT_EQ(textOf(DateTime()), "0000-00-00 00:00:00.000000000");
}

} // namespace
} // namespace tivra
