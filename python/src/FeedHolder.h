#pragma once

#include <memory>
#include <optional>
#include <utility>

#include <nanobind/nanobind.h>

#include <feed/Feed.h>
#include <feed/Opening.h>

#include "HandOver.h"
#include "Pending.h"

namespace tivra_python {

/// Drops what may wait for callbacks, which need the interpreter's lock, without that lock.
template<class T>
class Unlocked {
public:
    explicit Unlocked(std::shared_ptr<T> object) noexcept : m_object(std::move(object)) {}
    ~Unlocked() {
        if (m_object == nullptr)
            return;
        const Unlock released;
        m_object.reset();
    }
    Unlocked(Unlocked&&) noexcept = default;
    Unlocked& operator=(Unlocked&&) = delete;

    [[nodiscard]] T& operator*() const noexcept { return *m_object; }
    [[nodiscard]] T* operator->() const noexcept { return m_object.get(); }
    [[nodiscard]] const std::shared_ptr<T>& shared() const noexcept { return m_object; }

private:
    std::shared_ptr<T> m_object;
};

/// A feed of Python. Its subscriptions share it.
using FeedHolder = Unlocked<tivra::Feed>;

/// A feed that is being opened.
class OpeningHolder {
public:
    explicit OpeningHolder(tivra::FeedOptions options)
        : m_opening(std::make_shared<tivra::Opening>(tivra::Feed::openAsync(std::move(options)))) {
        m_opening->then([result = m_result.shared()](tivra::Result<tivra::Feed> feed) {
            result->complete(std::move(feed));
        });
    }

    [[nodiscard]] Pending<tivra::Feed>& result() const noexcept { return *m_result; }
    /// Without the interpreter's lock.
    void cancel() { m_opening->cancel(); }

private:
    /// With a feed, if nobody has taken it.
    Unlocked<Pending<tivra::Feed>> m_result{std::make_shared<Pending<tivra::Feed>>()};
    Unlocked<tivra::Opening> m_opening;
};

} // namespace tivra_python
