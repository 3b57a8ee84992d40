// Arbitrary dictionary rows on their way from a hub's messages into a dictionary, and arbitrary messages read
// by that dictionary up to the application, which asks for every value in every form. An input is lines of
// bodies: rows up to the first empty line, then messages.
#include "FuzzCheck.h"
#include "receive/ReadHandlerFakes.h"

#include "dictionary/BootstrapDictionary.h"
#include "kvnparse/Parser.h"
#include "receive/PairValue.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"

#include <tp/eprintf.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using namespace tivra_internal;

std::string_view nextLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

/// A row as a hub connection takes it out of a message.
void takeRow(const KVNAPI::Message& msg, const MetaTokenMap& dictionary, DictionaryCache& cache) {
    const auto field = [&](const char* name) { return msg.findPair(dictionary.lookupTokenViaName(name)); };
    const KVNAPI::TVPair* const number = field("KVN.TOKEN.NUM");
    if (number == nullptr)
        return;
    static_cast<void>(cache.addRow("v", static_cast<int>(integerOf(*number)), [&](TmpToken& row) {
        NumberText room;
        if (const KVNAPI::TVPair* const name = field("KVN.TOKEN.NAME"); name != nullptr) {
            const std::string_view text = textOf(*name, room);
            row.setTokenName(text.data(), text.size());
        }
        if (const KVNAPI::TVPair* const type = field("KVN.TOKEN.TYPE"); type != nullptr) {
            const std::string_view text = textOf(*type, room);
            row.setKVNType(text.data(), text.size());
        }
        if (const KVNAPI::TVPair* const length = field("KVN.TOKEN.SIZE"); length != nullptr)
            row.setTokenLength(static_cast<std::size_t>(integerOf(*length)));
    }));
}

void download(std::string_view& text, MetaTokenMap& dictionary) {
    const auto parser = KVNAPI::Parser::alloc("kvn", &dictionary, 262144);
    DictionaryCache cache;
    if (parser == nullptr || !cache.claimVersion("v"))
        std::abort();
    for (std::string_view line = nextLine(text); !line.empty(); line = nextLine(text)) {
        fuzz::ExactBytes frame(frameOf(line));
        KVNAPI::Message msg;
        parser->reset();
        parser->push(KVNAPI::bufref(frame.data(), frame.size()));
        if (parser->pull(&msg) == 0)
            takeRow(msg, dictionary, cache);
    }
    cache.loadDic("v", TokenRows{}, dictionary, "hub");
    const std::size_t count = dictionary.tokenCount();
    cache.loadDic("v", TokenRows{}, dictionary, "hub");
    fuzz::expectEqual("tokens after a second load", std::to_string(dictionary.tokenCount()),
                      std::to_string(count));
    for (const BootstrapToken& token : kBootstrapDictionary) {
        if (token.number != 0)
            fuzz::expectEqual("name of a bootstrap token", dictionary.tokenName(token.number), token.name);
    }
}

/// Reads all of an event; the sum keeps the reading from being left out.
struct Reading final : tivra::MessageEventHandler {
    void onMessageEvent(const tivra::MessageEvent& event) override {
        sum += describe(event).size() + event.getStatusString().size();
        sum += static_cast<unsigned>(event.isConflatable()) + static_cast<unsigned>(event.getPermission());
        sum += static_cast<unsigned>(event.getPartCode());
        sum += static_cast<unsigned>(event.getDisplayPrecision());
        for (std::size_t i = 0; i <= event.getNumberofAlternateIndexes(); ++i)
            sum += event.getAlternateIndexTokenName(i).size();
        tivra::MessageReader& reader = event.getReader();
        for (bool more = reader.find(5026) || reader.find(8); more; more = reader.next() != -1) {
            sum += reader.getTokenName().size() + static_cast<unsigned>(reader.getValueType());
            sum += static_cast<std::uint64_t>(reader.getValueAsInteger());
            sum += reader.getValueAsDouble() > 0.0 ? 1U : 0U;
            sum += static_cast<unsigned>(reader.getValueAsDateTime().date().year() + reader.peek());
        }
    }
    std::uint64_t sum = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tp::eprintf_ctrl(EPF_ENABLE, EPF_MUTE);
    std::string_view text(reinterpret_cast<const char*>(data), size);
    FakeHub hub(false);
    download(text, hub.dictionary);

    FakeSession session;
    Reading application;
    session.handler = &application;
    session.hbSubscribed = true;
    session.commands = {{20, tivra::QUERYSNAP}, {21, tivra::SUBSCRIBE}};
    session.altIndexes = {{30, {{40, 100, "", "A", true, tivra::SUBSCRIBE}}},
                          {31, {{40, 100, "", "A", false, tivra::UNSUBSCRIBE}}},
                          {32, {{41, 100, "", "", false, tivra::ADDALTERNATEINDEX}}},
                          {33, {{8, 100, "", "1.5", false, tivra::QUERYSNAP}}}};
    Queue queue(1, false, nullptr, 70);
    QueueReadHandler handler(&queue, session, nullptr, nullptr, hub, true);
    std::uint64_t delivered = 0;
    while (!text.empty()) {
        fuzz::ExactBytes frame(frameOf(nextLine(text)));
        static_cast<void>(handler.process_kvn_buffer(frame.data(), frame.size(), &delivered));
    }
    handler.reset();
    fuzz::expectEqual("hubs that conflate after a reset", std::to_string(session.jitCount), "0");
    return 0;
}
