#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include <request/Commands.h>
#include <tp/Process.h>

#include "request/RequestContent.h"

namespace tivra_internal {

class TagSource;

/// A request while it is built. One application thread at a time.
class RequestImpl : protected RequestContent {
public:
    /// `session` issues the tags and stays the caller's; null gives a request without tags of its own.
    explicit RequestImpl(TagSource* session = nullptr) noexcept : m_session(session) {}
    RequestImpl(const RequestImpl&) = delete;
    RequestImpl& operator=(const RequestImpl&) = delete;

    void setCommand(tivra::Commands command);
    void add(int token, int value);
    void add(int token, int64_t value);
    void add(int token, const std::string& value);
    /// Takes the next tag now; 0 when the session is gone.
    int64_t generateTag();
    /// The next send uses this tag, which the session has issued.
    void useTag(int64_t issued) noexcept {
        tag = issued;
        isTagSet = true;
    }
    void clearRequest();

    /// The word of a command on the wire; null for a value that is no command.
    [[nodiscard]] static const char* getCommandString(tivra::Commands command) noexcept;
    /// The same for requests that say the same in another order, whatever their tags.
    [[nodiscard]] std::string getCompareString() const;

    /// The session ends before its requests: no tag comes from it any more. @thread any
    void detachSession() noexcept { m_session.store(nullptr, std::memory_order_release); }
    [[nodiscard]] bool isDetached() const noexcept {
        return m_session.load(std::memory_order_acquire) == nullptr;
    }

    /// A tag from generateTag waits to be used by the next send.
    [[nodiscard]] bool hasGeneratedTag() const noexcept { return isTagSet || isTagSetInString; }
    /// The tag that generateTag has issued last, 0 when there was none.
    [[nodiscard]] int64_t getGeneratedTag() const noexcept { return tag; }
    /// The send has used the generated tag.
    void consumeGeneratedTag() noexcept { isTagSet = isTagSetInString = false; }

    /// A value has been refused since the last clearRequest: the request doesn't say what it should.
    [[nodiscard]] bool isIncomplete() const noexcept { return m_hasRefusedValue; }
    [[nodiscard]] const std::string& getText() const noexcept { return request; }
    /// Source number, -1 when none was added.
    [[nodiscard]] int32_t getSrcid() const noexcept { return srcid; }
    [[nodiscard]] bool isCommandSet() const noexcept { return isCmdSet; }
    /// At most 32 characters; empty when none was added as a text.
    [[nodiscard]] const char* getSymbol() const noexcept { return symbol; }
    [[nodiscard]] tivra::Commands getCommand() const noexcept { return command; }
    /// The values added under token 5035, in the order of adding.
    [[nodiscard]] const std::vector<int32_t>& getKVNTokenNums() const noexcept { return kvnTokenNums; }

    [[nodiscard]] const tp::ProcessMark& process() const noexcept { return m_process; }

    [[nodiscard]] const RequestContent& getContent() const noexcept { return *this; }

protected:
    /// Takes over everything but the session and the tags.
    void setContent(const RequestContent& content) { static_cast<RequestContent&>(*this) = content; }

private:
    [[nodiscard]] static bool isReserved(int token);
    void appendPair(int token, std::string value);

    int64_t tag = 0;
    bool isTagSet = false;
    bool m_hasRefusedValue = false;
    tp::ProcessMark m_process;
    std::atomic<TagSource*> m_session;
};

} // namespace tivra_internal
