// What tivra-top shows of a picture: rows, order and filter, in windows of any size.
#include <tivra-top/OpenMetrics.h>
#include <tivra-top/Painter.h>
#include <tivra-top/RowTable.h>

#include <gmock/gmock.h>

using namespace tivra_top;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

const TimePoint kNow{1'700'000'000s};

Row row(const char* name, double bid, tivra::DataState state = tivra::DataState::Live) {
    Row made;
    made.name = name;
    made.state = state;
    made.lastUpdate = kNow - 5s;
    made.cells = {{std::to_string(static_cast<int>(bid)), bid, 0}};
    return made;
}

Picture picture() {
    Picture made;
    made.time = kNow;
    made.title = "hub:1";
    made.state = tivra::FeedState::Established;
    made.columns = {"BID"};
    made.rows = {row("1:AAA", 30), row("1:BBB", 9), row("1:Cab", 100, tivra::DataState::Stale)};
    HubLine hub;
    hub.status.hub = "10.1.2.3:4567";
    hub.status.to = tivra::HubState::Lost;
    hub.status.cause = "reset by peer";
    hub.statistics.queueFill = 0.42;
    made.hubs = {hub};
    made.log = {{kNow, true, "hub lost"}};
    return made;
}

std::vector<std::string> linesOf(const Canvas& canvas) {
    std::vector<std::string> lines;
    for (std::size_t y = 0; y < canvas.height(); ++y)
        lines.push_back(canvas.line(y));
    return lines;
}

std::string canvasText(const Canvas& canvas) {
    std::string text;
    for (const std::string& line : linesOf(canvas))
        text += line + "\n";
    return text;
}

std::string screenOf(const Picture& picture, std::size_t width, std::size_t height) {
    View view;
    return canvasText(paint(picture, view, width, height));
}

std::vector<std::string> namesIn(const View& view) {
    const Picture shown = picture();
    std::vector<std::string> names;
    for (const Row* each : view.rowsOf(shown))
        names.push_back(each->name);
    return names;
}

void type(View& view, const std::string& text) {
    for (const char c : text)
        view.press(Key::Character, c);
}

TEST(TopView, SortsByAnyColumnEitherWay) {
    View view;
    EXPECT_THAT(namesIn(view), ElementsAre("1:AAA", "1:BBB", "1:Cab"));
    view.press(Key::Right); // by number, not by text
    EXPECT_THAT(namesIn(view), ElementsAre("1:BBB", "1:AAA", "1:Cab"));
    type(view, "r");
    EXPECT_THAT(namesIn(view), ElementsAre("1:Cab", "1:AAA", "1:BBB"));
    for (int i = 0; i < 3; ++i)
        view.press(Key::Right); // to the state
    EXPECT_THAT(namesIn(view), ElementsAre("1:Cab", "1:BBB", "1:AAA"));
}

TEST(TopView, FiltersByWhatIsTypedAndTakesNoLetterForACommand) {
    View view;
    type(view, "/abq");
    EXPECT_FALSE(view.hasEnded());
    EXPECT_THAT(namesIn(view), ElementsAre());
    view.press(Key::Backspace);
    EXPECT_THAT(namesIn(view), ElementsAre("1:Cab"));
    view.press(Key::Enter);
    type(view, "r");
    EXPECT_EQ(view.filter(), "ab");
    view.press(Key::Escape);
    EXPECT_EQ(namesIn(view).size(), 3U);
    type(view, "q");
    EXPECT_TRUE(view.hasEnded());
}

TEST(TopPainter, FitsIntoAWindowOfAnySize) {
    const Picture shown = picture();
    for (std::size_t width = 1; width <= 200; ++width)
        for (const std::size_t height : {1U, 2U, 3U, 4U, 5U, 10U, 24U, 60U})
            for (int panel = 0; panel < 4; ++panel) {
                View view;
                for (int i = 0; i < panel; ++i)
                    view.press(Key::Tab);
                for (int i = 0; i < 30; ++i)
                    view.press(Key::Down); // beyond the last
                const Canvas canvas = paint(shown, view, width, height);
                EXPECT_EQ(canvas.line(0).substr(0, 11), std::string("established").substr(0, width));
                if (view.panel() == Panel::Board && width >= 5 && height >= 3) {
                    EXPECT_THAT(canvasText(canvas), HasSubstr("1:Cab")) << "the last row";
                }
            }
    EXPECT_THAT(screenOf(shown, 80, 1), HasSubstr("established"));
    EXPECT_THAT(screenOf(shown, 40, 10), testing::AllOf(HasSubstr("1:AAA"), HasSubstr("30")));
    EXPECT_THAT(screenOf(shown, 80, 24),
                testing::AllOf(HasSubstr("stale"), HasSubstr("reset by peer"), HasSubstr("hub lost"),
                               HasSubstr(" 42% "), HasSubstr(" 5s ")));
}

TEST(TopPainter, StaleValuesAreGreyAndNeverShownAsMoved) {
    Picture shown = picture();
    shown.rows[0].cells[0].move = 1;
    shown.rows[2].cells[0].move = 1;
    View view;
    const Canvas canvas = paint(shown, view, 40, 10);
    EXPECT_EQ(canvas.at(23, 2).style, Style::Up);
    EXPECT_EQ(canvas.at(23, 4).style, Style::Stale);
}

TEST(TopRows, MoveShowsForTwoSecondsAndRatesSurviveARestartOfTheCounter) {
    RowTable table;
    Row first = row("1:AAA", 10);
    first.updates = 100;
    table.put(first, kNow);
    table.measure(kNow);
    EXPECT_EQ(table.rows(kNow)[0].rate, 0.0);
    Row second = row("1:AAA", 9);
    second.updates = 150;
    table.put(second, kNow + 1s);
    table.measure(kNow + 2s);
    EXPECT_EQ(table.rows(kNow + 2s)[0].cells[0].move, -1);
    EXPECT_EQ(table.rows(kNow + 2s)[0].rate, 25.0);
    EXPECT_EQ(table.rows(kNow + 4s)[0].cells[0].move, 0);
    second.updates = 3;
    table.put(second, kNow + 5s);
    table.measure(kNow + 6s);
    EXPECT_EQ(table.rows(kNow + 6s)[0].rate, 0.0);
}

TEST(TopRows, RowsThatAreNotAmongAllGoAndOthersKeepTheirRates) {
    RowTable table;
    Row kept = row("1:AAA", 10);
    table.replaceAll({kept, row("1:BBB", 1)}, kNow);
    table.measure(kNow);
    kept.updates = 30;
    table.replaceAll({kept}, kNow + 2s);
    table.measure(kNow + 2s);
    ASSERT_EQ(table.rows(kNow + 3s).size(), 1U);
    EXPECT_EQ(table.rows(kNow + 3s)[0].rate, 15.0) << "whenever it is looked at";
}

TEST(TopView, ScrollingStopsAtTheEndsAndALogScrollsBackwards) {
    Picture shown = picture();
    for (int i = 0; i < 20; ++i)
        shown.log.push_back({kNow, false, "line " + std::to_string(i)});
    View view;
    view.press(Key::Tab); // to the board
    for (int i = 0; i < 9; ++i)
        view.press(Key::PageDown);
    EXPECT_THAT(canvasText(paint(shown, view, 60, 3)), HasSubstr("1:Cab"));
    view.press(Key::Up);
    EXPECT_THAT(canvasText(paint(shown, view, 60, 3)), HasSubstr("1:BBB"));
    view.press(Key::Tab);
    view.press(Key::Tab); // to the log
    EXPECT_THAT(canvasText(paint(shown, view, 60, 3)), HasSubstr("line 19"));
    view.press(Key::Up);
    EXPECT_THAT(canvasText(paint(shown, view, 60, 3)), HasSubstr("line 18"));
    view.press(Key::Home);
    EXPECT_THAT(canvasText(paint(shown, view, 60, 3)), HasSubstr("hub lost"));
    view.press(Key::Down);
    EXPECT_THAT(canvasText(paint(shown, view, 60, 3)), HasSubstr("line 0"));
}

TEST(TopPainter, ClaimsNothingThatIsUnknownAndCutsNoNameOrNumberThatFits) {
    Picture shown = picture();
    shown.hubs.clear();
    shown.rows[0].name = "feed_callback_seconds{quantile=\"0.99\"}";
    shown.rows[0].cells = {{"-1234567890.25", -1234567890.25, 0}};
    shown.rows[1].cells = {{"0.1234567890123", 0.1234567890123, 0}};
    EXPECT_THAT(screenOf(shown, 80, 24),
                testing::AllOf(HasSubstr(shown.rows[0].name + " "), HasSubstr(" -1.23e+09 "),
                               HasSubstr(" 0.1234568 "), Not(HasSubstr("gaps")), Not(HasSubstr("hubs")),
                               Not(HasSubstr("HUB"))));
    shown.gaps = 0;
    EXPECT_THAT(screenOf(shown, 80, 24), HasSubstr("gaps 0"));
}

TEST(TopPainter, DistributionLiesOnItsScale) {
    tivra::LatencySummary times;
    EXPECT_EQ(distributionText(times, 7), "       ");
    times = {4, 1us, 1ms, 1ms, 100ms, 1s, 1h};
    EXPECT_EQ(distributionText(times, 7), "---|==-");
    EXPECT_EQ(durationText(999us), "999us");
    EXPECT_EQ(durationText(9999us), "9.9ms");
    EXPECT_EQ(durationText(100h), "100h");
}

TEST(TopOpenMetrics, TakesSamplesAndCountsWhatIsNone) {
    std::size_t faults = 0;
    const auto metrics = parseOpenMetrics("# TYPE a counter\na_total{x=\"}\\\" 1\",y=\"\"} 5 1700000000\r\nb "
                                          "-0.25\nc\nd{x=\"1 2\n{} 1\ne nan\nf 1x\n# EOF\nlast 7",
                                          10, faults);
    ASSERT_EQ(metrics.size(), 3U);
    EXPECT_EQ(metrics[0].labels, "{x=\"}\\\" 1\",y=\"\"}");
    EXPECT_EQ(metrics[0].value, 5.0);
    EXPECT_TRUE(metrics[0].isCounter());
    EXPECT_EQ(metrics[1].value, -0.25);
    EXPECT_EQ(metrics[2].name, "last");
    EXPECT_EQ(faults, 5U);
    EXPECT_EQ(parseOpenMetrics("a 1\nb 2\nc 3\n", 2, faults).size(), 2U) << "bounded";
}

} // namespace
