#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <feed/Update.h>
#include <tp/Clock.h>

#include "feed/CallbackSlot.h"
#include "feed/FeedRegistry.h"
#include "feed/HubFields.h"
#include "feed/ItemTable.h"
#include "feed/MessageTimes.h"
#include "receive/MessageStream.h"

namespace tivra_internal {

class FeedImpl;

/// What one hub sends to a feed, sorted to the items and answers that it is for. @thread that delivers for
/// the hub
class FeedStream final : public MessageStream {
public:
    FeedStream(std::shared_ptr<FeedRegistry> registry, const FeedImpl& feed, const MetaTokenMap& dictionary,
               std::string hub, const Queue& queue);
    ~FeedStream() override;

    void deliver(const StreamMessage& incoming) override;
    void connectionLost(double heard) override;
    void connectionBegins() override;
    void hubRefused(int64_t tag, int64_t status) override;
    void hubAnswered(int64_t tag) override;
    void hubDropped(std::uint64_t bytes, double since) override;
    void conflationChanged(bool isConflating, double since) override;

    [[nodiscard]] HubFields& fields() noexcept { return m_fields; }
    [[nodiscard]] MessageTimes& times() noexcept { return m_times; }
    /// @thread any
    [[nodiscard]] HubMeasures& measures() const noexcept { return *m_measures; }
    /// Seconds since the epoch, to about a millisecond.
    [[nodiscard]] double now() noexcept {
        const uint32_t beats = tp::Clock::beats();
        if (beats != m_beats || m_now == 0.0) {
            m_beats = beats;
            m_now = tp::Clock::now();
        }
        return m_now;
    }
    /// How full the hub's receive queue was when it was looked at last, from 0 to 1. @thread any
    [[nodiscard]] double queueFill() const noexcept;
    /// Messages that have found their item. @thread any
    [[nodiscard]] std::uint64_t updates() const noexcept { return m_updates.load(std::memory_order_relaxed); }

private:
    void deliverTagged(const StreamMessage& incoming);
    void deliverTo(const std::shared_ptr<FeedItem>& item, const StreamMessage& incoming);
    void deliverTo(const FeedRegistry::Latecomer& latecomer, const StreamMessage& incoming);
    void deliverTo(const std::shared_ptr<AnswerState>& answer, const StreamMessage& incoming);
    /// Who gets the updates of the message's symbol; null when nobody does.
    [[nodiscard]] const ItemTable::Slot* slotOf(const KVNAPI::Message& message);
    void makeRoom();
    void meet(const std::shared_ptr<FeedItem>& item, const KVNAPI::Message& message);
    void tellOfGap(const tivra::Gap& gap);
    [[nodiscard]] tivra::Error refusal(const std::string& what, int64_t status) const;

    const std::shared_ptr<FeedRegistry> m_registry;
    const FeedImpl& m_feed;
    const std::string m_hub;
    const Queue& m_queue;
    const std::shared_ptr<HubMeasures> m_measures;
    HubFields m_fields;
    MessageTimes m_times;
    CallbackSlot m_slot;
    /// So many symbols are kept in mind, or twice those that have been subscribed by name.
    static constexpr std::size_t kMostMet = 2'000'000;
    ItemTable m_items;
    std::size_t m_roomFor = kMostMet;
    std::atomic<std::uint64_t> m_updates{0};
    std::optional<double> m_conflatedSince; ///< by the monotonic clock
    double m_now = 0.0;
    uint32_t m_beats = 0;
};

} // namespace tivra_internal
