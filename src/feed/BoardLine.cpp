#include "feed/BoardLine.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <string_view>
#include <thread>
#include <utility>

#include <feed/Error.h>
#include <tp/eprintf.h>

#include "feed/ClockTime.h"
#include "feed/HubFields.h"
#include "feed/RecordData.h"
#include "feed/SubscriptionState.h"
#include "kvnparse/Message.h"

namespace tivra_internal {
namespace {

using tivra::Error;
using tivra::Value;

/// The pointer to a field has room for the type of its value.
constexpr std::uint64_t kTypeMask = 7;
static_assert(alignof(FieldEntry) > kTypeMask);

/// Where a text stands, in the word of its field.
struct TextPlace {
    static constexpr unsigned kLengthBits = 24;
    static constexpr unsigned kRoomBits = 16;

    std::size_t begin = 0;  ///< in words
    std::size_t room = 0;   ///< in words
    std::size_t length = 0; ///< in bytes

    explicit TextPlace(std::uint64_t word) noexcept
        : begin(word >> (kRoomBits + kLengthBits))
        , room(word >> kLengthBits & ((1U << kRoomBits) - 1))
        , length(word & ((1U << kLengthBits) - 1)) {}
    TextPlace(std::size_t beginWord, std::size_t roomWords, std::size_t bytes) noexcept
        : begin(beginWord), room(std::min<std::size_t>(roomWords, (1U << kRoomBits) - 1)), length(bytes) {}

    [[nodiscard]] std::uint64_t word() const noexcept {
        return begin << (kRoomBits + kLengthBits) | room << kLengthBits | length;
    }
    [[nodiscard]] std::size_t words() const noexcept { return (length + 7) / 8; }
};

/// A longer one than any frame has.
constexpr std::size_t kLongestText = (1U << TextPlace::kLengthBits) - 1;

[[nodiscard]] std::uint64_t nameWord(const FieldEntry& field, Value::Type type) noexcept {
    return reinterpret_cast<std::uintptr_t>(&field) | static_cast<std::uint64_t>(type);
}

[[nodiscard]] Value::Type typeOf(std::uint64_t name) noexcept {
    return static_cast<Value::Type>(name & kTypeMask);
}

/// Whether a field has had a value of that storage last, whose type needn't be looked up again.
[[nodiscard]] bool isStoredAs(std::uint64_t name, unsigned storage) noexcept {
    const Value::Type type = typeOf(name);
    return storage == KVNAPI::Token::TY_INT ? type == Value::Type::Integer
                                            : type == Value::Type::Double || type == Value::Type::Time;
}

/// A hub may send fields and texts without end; no line is larger, and every place in one has room in the
/// word of its field.
constexpr std::size_t kMostWords = (4U << 20) / sizeof(std::uint64_t);
constexpr std::size_t kNowhere = std::numeric_limits<std::size_t>::max();

/// What a record is made of: the words of a line, as they were at one moment.
class WordContent {
public:
    WordContent(const std::shared_ptr<FieldTable>& table, const BoardLine& line,
                const std::vector<std::uint64_t>& words, std::size_t count)
        : m_table(table), m_line(line), m_words(words), m_count(count) {}

    [[nodiscard]] const std::shared_ptr<FieldTable>& table() const noexcept { return m_table; }
    [[nodiscard]] int source() const noexcept { return m_line.source(); }
    [[nodiscard]] std::string_view symbol() const noexcept { return m_line.symbol(); }
    [[nodiscard]] std::size_t size() const noexcept { return m_count; }
    [[nodiscard]] std::size_t textLengthAt(std::size_t index) const noexcept {
        return typeOf(m_words[2 * index]) == Value::Type::Text ? TextPlace(m_words[2 * index + 1]).length : 0;
    }
    [[nodiscard]] RecordData::Slot slotAt(std::size_t index) const {
        const std::uint64_t name = m_words[2 * index];
        return {reinterpret_cast<const FieldEntry*>(name & ~kTypeMask),
                valueOf(typeOf(name), m_words[2 * index + 1])};
    }

private:
    [[nodiscard]] Value valueOf(Value::Type type, std::uint64_t word) const {
        switch (type) {
        case Value::Type::Double:
            return Value::ofDouble(std::bit_cast<double>(word));
        case Value::Type::Time:
            return Value::ofTime(std::bit_cast<double>(word));
        case Value::Type::Text: {
            const TextPlace place(word);
            return Value::ofText({reinterpret_cast<const char*>(m_words.data() + place.begin), place.length});
        }
        case Value::Type::Integer:
            break;
        }
        return Value::ofInteger(static_cast<std::int64_t>(word));
    }

    const std::shared_ptr<FieldTable>& m_table;
    const BoardLine& m_line;
    const std::vector<std::uint64_t>& m_words;
    const std::size_t m_count;
};

class TP_SCOPED_CAPABILITY WriterTurn {
public:
    explicit WriterTurn(ItemTurn& turn) TP_ACQUIRE(turn) : m_turn(turn) { m_turn.lock(); }
    ~WriterTurn() TP_RELEASE() { m_turn.unlock(); }
    WriterTurn(const WriterTurn&) = delete;
    WriterTurn& operator=(const WriterTurn&) = delete;

private:
    ItemTurn& m_turn;
};

} // namespace

/// The time in which the words don't belong together.
class BoardLine::Writing {
public:
    explicit Writing(std::atomic<std::uint32_t>& version) noexcept : m_version(version) {
        m_version.store(m_version.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
    ~Writing() { m_version.store(m_version.load(std::memory_order_relaxed) + 1, std::memory_order_release); }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

private:
    std::atomic<std::uint32_t>& m_version;
};

BoardLine::BoardLine(int source, std::string symbol, std::uint32_t index)
    : m_index(index), m_source(source), m_symbol(std::move(symbol)) {}

BoardLine::~BoardLine() {
    const BoardBlock::Ptr last(m_block.load(std::memory_order_relaxed));
}

void BoardLine::update(const UpdateData& data, bool replaces, BoardRoom& room) {
    const WriterTurn turn(m_turn);
    write(data, replaces, room);
}

void BoardLine::write(const UpdateData& data, bool replaces, BoardRoom& room) {
    if (m_table == nullptr)
        m_table = data.fields.table();
    else if (m_table != data.fields.table())
        throw Error({Error::Code::InvalidArgument, Error::Phase::Subscription,
                     "the board has " + m_symbol + " from another feed", "give each feed a board of its own",
                     "", 0, "", 0});
    const Writing writing(m_version);
    if (replaces) {
        m_count.store(0, std::memory_order_release);
        m_next = 0;
        if (const BoardBlock* const block = m_block.load(std::memory_order_relaxed))
            m_textBegin = static_cast<std::uint32_t>(block->size());
    }
    const KVNAPI::Message& message = data.message;
    if (m_block.load(std::memory_order_relaxed) == nullptr)
        static_cast<void>(makeRoom(2 * static_cast<std::size_t>(message.pairCount()), room));
    for (int i = 0; i < message.pairCount(); ++i)
        put(data.fields.fieldOf(*message.tokenOf(i)), message, i, room);
    m_lastUpdate.store(data.subscription->lastUpdate(), std::memory_order_release);
    m_updates.store(m_updates.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

void BoardLine::put(const FieldEntry& field, const KVNAPI::Message& message, int index, BoardRoom& room) {
    const std::size_t place = placeOf(field, room);
    if (place == kNowhere)
        return;
    const KVNAPI::TVPair pair = message.readPair(index);
    if (pair.token->storage != KVNAPI::Token::TY_STRING && isStoredAs(load(place), pair.token->storage)) {
        store(place + 1, pair.token->storage == KVNAPI::Token::TY_INT ? static_cast<std::uint64_t>(pair.i)
                                                                      : std::bit_cast<std::uint64_t>(pair.d));
        return;
    }
    const Value value = HubFields::valueOf(message, index);
    switch (value.type()) {
    case Value::Type::Text:
        putText(place, field, value.as<std::string_view>().substr(0, kLongestText), room);
        return;
    case Value::Type::Integer:
        store(place + 1, static_cast<std::uint64_t>(value.as<std::int64_t>()));
        break;
    case Value::Type::Double:
    case Value::Type::Time:
        store(place + 1, std::bit_cast<std::uint64_t>(pair.d));
        break;
    }
    store(place, nameWord(field, value.type()));
}

/// Updates of one symbol repeat their fields in their order as a rule.
std::size_t BoardLine::placeOf(const FieldEntry& field, BoardRoom& room) {
    const std::uint32_t count = m_count.load(std::memory_order_relaxed);
    const std::uint64_t wanted = nameWord(field, Value::Type::Integer); // of no type
    if (m_next < count && (load(2 * m_next) & ~kTypeMask) == wanted)
        return 2 * m_next++;
    for (std::uint32_t seen = 0, at = m_next; seen < count; ++seen) {
        if (at >= count)
            at = 0;
        if ((load(2 * at) & ~kTypeMask) == wanted) {
            m_next = at + 1;
            return 2 * at;
        }
        ++at;
    }
    if (!makeRoom(2, room)) {
        leaveOut(field, room);
        return kNowhere;
    }
    store(2 * count, wanted);
    store(2 * count + 1, 0);
    m_count.store(count + 1, std::memory_order_release);
    m_next = count + 1;
    return 2 * count;
}

void BoardLine::putText(std::size_t place, const FieldEntry& field, std::string_view text, BoardRoom& room) {
    TextPlace target(0, 0, text.size());
    const std::size_t words = target.words();
    if (typeOf(load(place)) == Value::Type::Text)
        target = TextPlace(load(place + 1));
    target.length = text.size();
    if (words > target.room) {
        store(place, nameWord(field, Value::Type::Integer)); // what it has isn't carried along
        store(place + 1, 0);
        // One that grows may do so again.
        const std::size_t wanted = target.room != 0 ? std::bit_ceil(words) : words;
        if (!makeRoom(wanted, room)) {
            store(place, nameWord(field, Value::Type::Text)); // an old value would be taken for a new one
            store(place + 1, TextPlace(m_block.load(std::memory_order_relaxed)->size(), 0, 0).word());
            leaveOut(field, room);
            return;
        }
        m_textBegin -= static_cast<std::uint32_t>(wanted);
        target = TextPlace(m_textBegin, wanted, text.size());
    }
    for (std::size_t i = 0; i < words; ++i) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + 8 * i, std::min<std::size_t>(8, text.size() - 8 * i));
        store(target.begin + i, word);
    }
    store(place, nameWord(field, Value::Type::Text));
    store(place + 1, target.word());
}

void BoardLine::leaveOut(const FieldEntry& field, BoardRoom& room) {
    countGap();
    room.countLeftOut();
    eprintf(EPF_WARN, "A row of a board, source %d, has no room for the field %s, whose value is left out",
            m_source, field.name.c_str());
}

/// A larger block, with some room to spare where the board has it.
bool BoardLine::grow(std::size_t needed, std::size_t size, BoardRoom& room) {
    std::size_t words = std::max(needed, 2 * size);
    if (!room.take(BoardBlock::bytesFor(words))) {
        words = needed;
        if (!room.take(BoardBlock::bytesFor(words)))
            return false;
    }
    BoardBlock::Ptr before(m_block.load(std::memory_order_relaxed));
    m_block.store(BoardBlock::make(words, std::move(before)).release(), std::memory_order_release);
    return true;
}

bool BoardLine::makeRoom(std::size_t words, BoardRoom& room) {
    const BoardBlock* block = m_block.load(std::memory_order_relaxed);
    const std::size_t fields = 2 * static_cast<std::size_t>(m_count.load(std::memory_order_relaxed));
    if (block != nullptr && fields + words <= m_textBegin)
        return true;
    // The texts that are left behind by longer ones go.
    std::vector<std::uint64_t> old(block != nullptr ? block->size() : 0);
    std::size_t texts = 0;
    for (std::size_t i = 0; i < old.size(); ++i)
        old[i] = load(i);
    for (std::size_t i = 0; i < fields; i += 2)
        if (typeOf(old[i]) == Value::Type::Text)
            texts += std::max(TextPlace(old[i + 1]).room, TextPlace(old[i + 1]).words());
    const std::size_t needed = fields + texts + words;
    if (needed > kMostWords || (needed > old.size() && !grow(needed, old.size(), room)))
        return false;
    block = m_block.load(std::memory_order_relaxed);
    m_textBegin = static_cast<std::uint32_t>(block->size());
    for (std::size_t i = 0; i < fields; i += 2) {
        store(i, old[i]);
        store(i + 1, old[i + 1]);
        if (typeOf(old[i]) != Value::Type::Text)
            continue;
        TextPlace text(old[i + 1]);
        const std::size_t from = text.begin;
        m_textBegin -= static_cast<std::uint32_t>(std::max(text.room, text.words()));
        text.begin = m_textBegin;
        for (std::size_t w = 0; w < text.words(); ++w)
            store(text.begin + w, old[from + w]);
        store(i + 1, text.word());
    }
    return true;
}

/// What it looks at may be half written: no word is trusted before the version has been seen again, but for
/// the size of a block. Loads that acquire keep their order, and the last one follows them all.
bool BoardLine::copyTo(std::vector<std::uint64_t>& words, tivra::BoardRow& row, std::size_t& count) const {
    const std::uint32_t version = m_version.load(std::memory_order_acquire);
    if (version % 2 != 0)
        return false;
    count = m_count.load(std::memory_order_acquire);
    row.updates = m_updates.load(std::memory_order_acquire);
    if (const double time = m_lastUpdate.load(std::memory_order_acquire); time != 0.0)
        row.lastUpdate = toTimePoint(time);
    const BoardBlock* const block = m_block.load(std::memory_order_acquire);
    const std::size_t size = block != nullptr ? block->size() : 0;
    if (2 * count > size)
        return false;
    words.resize(size);
    for (std::size_t i = 0; i < 2 * count; ++i)
        words[i] = block->word(i).load(std::memory_order_acquire);
    for (std::size_t i = 0; i < 2 * count; i += 2) {
        if (typeOf(words[i]) != Value::Type::Text)
            continue;
        const TextPlace text(words[i + 1]);
        if (text.begin < 2 * count || text.begin + text.words() > size)
            return false;
        for (std::size_t w = text.begin; w < text.begin + text.words(); ++w)
            words[w] = block->word(w).load(std::memory_order_acquire);
    }
    return m_version.load(std::memory_order_relaxed) == version;
}

tivra::BoardRow BoardLine::read() const {
    thread_local std::vector<std::uint64_t> words;
    static const std::shared_ptr<FieldTable> nothing;
    tivra::BoardRow row;
    std::size_t count = 0;
    while (!copyTo(words, row, count))
        std::this_thread::yield();
    row.gaps = m_gaps.load(std::memory_order_relaxed);
    row.state = state();
    row.values = RecordData::make(WordContent(count != 0 ? m_table : nothing, *this, words, count));
    return row;
}

std::size_t BoardLine::bytes() const noexcept {
    std::size_t sum = sizeof(BoardLine) + (m_symbol.capacity() > 15 ? m_symbol.capacity() : 0);
    for (const BoardBlock* block = m_block.load(std::memory_order_acquire); block != nullptr;
         block = block->smaller())
        sum += block->bytes();
    return sum;
}

} // namespace tivra_internal
