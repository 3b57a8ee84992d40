#pragma once

#include "LogTail.h"
#include "Options.h"
#include "Picture.h"
#include "RowTable.h"
#include "Signals.h"
#include "Watch.h"

#include <feed/Board.h>
#include <feed/Feed.h>

#include <map>

namespace tivra_top {

/// A feed with all that is to be shown of it. Used by the main thread: the feed's own threads write on a
/// board and into a bounded tail of the log, and never wait for who looks at them.
class FeedWatch final : public Watch {
public:
    /// Connects and subscribes. Throws Failure when that can't be done, or when a signal ends it.
    FeedWatch(const Options& options, const std::string& password, const std::string& logFile,
              Signals& signals);
    ~FeedWatch() override;

    [[nodiscard]] Picture picture() override;
    /// Whether each symbol that was named has its present values, or a refusal.
    [[nodiscard]] bool isAnswered() override;

private:
    void chooseFields(const std::vector<std::string>& wanted);
    void subscribe(const Options& options);
    void takeChanges(TimePoint now);
    [[nodiscard]] std::vector<Cell> cellsOf(const tivra::BoardRow& row);
    void takeStatistics(Picture& picture);

    LogTail m_log;
    tivra::Board m_board;
    std::optional<tivra::Feed> m_feed;
    tivra::SubscriptionGroup m_group;
    std::vector<tivra::Subscription> m_patterns;
    std::string m_title;
    std::vector<tivra::Field> m_fields;
    bool m_takesFieldsAsTheyCome = false;
    tivra::BoardCursor m_seen;
    RowTable m_rows;
    std::map<std::string, RateMeter> m_hubRates;
};

} // namespace tivra_top
