#pragma once

#include <map>
#include <string>
#include <vector>

#include <user/UserEventHandler.h>

namespace tivra_internal {

struct QuietUser : tivra::UserEventHandler {
    void onUserEvent(const tivra::UserEvent&) override {}
};

/// What a hub answers, by the command word of the request: one body per message.
using Answers = std::map<std::string, std::vector<std::string>>;

/// What a lone hub answers in a handshake.
class HubAnswers {
public:
    virtual ~HubAnswers() = default;

    /// Where the hub is, as it says that itself.
    virtual std::string ownPort() const = 0;

    /// The answers of a lone hub; a test replaces what it is about.
    Answers loneHub() const {
        return {{"LoginUser", {"5026=1|5001=0"}},
                {"ListEnumeration",
                 {"5026=2|5034=0|5033=SUCCESS", "5026=2|5034=-5|5033=ERR.AUTH.LOGIN", "5026=2|5001=0"}},
                {"SetConflationInterval", {"5026=3|5001=0"}},
                {"SetConflationType", {"5026=4|5001=0"}},
                {"ListAdministrationInfo", {"5026=5|5080=D1|5008=V8.1.2|5001=0"}},
                {"ListInternalTokens",
                 {"5026=6|5035=10|5010=BID|5012=FLOAT|5011=20",
                  "5026=6|5035=11|5010=BID.SIZE|5012=INTEGER|5011=20", "5026=6|5001=0"}},
                {"GetPort", {"5026=7" + ownPort() + "|5001=0"}},
                {"ListSplitExchanges", {"5026=8|5001=0"}},
                {"GetAllPorts", {"5026=15|5001=0"}},
                {"ListSystemPermission", {"5026=9|3=922|3=558|5001=0"}},
                {"ListUserPermission", {"5026=10|3=922|3=558|5001=0"}},
                {"Subscribe .UTC.TIME.DATE", {"5026=12|5001=0"}},
                {"Subscribe .HUB.STATUS", {"5026=13|5001=0"}},
                {"Echo", {"5026=14|5001=0"}}};
    }
    /// A lone hub that answers one command word differently.
    Answers loneHubBut(const std::string& word, std::vector<std::string> bodies) const {
        Answers answers = loneHub();
        answers[word] = std::move(bodies);
        return answers;
    }
    /// The command words of requests, with what distinguishes repeated ones.
    static std::vector<std::string> wordsOf(const std::vector<std::string>& requests) {
        std::vector<std::string> words;
        for (const std::string& text : requests)
            words.push_back(wordOf(text));
        return words;
    }
    static std::string wordOf(const std::string& text) {
        const std::size_t start = text.find("5022=") + 5;
        std::string word = text.substr(start, text.find('|', start) - start);
        if (word == "Subscribe")
            word += ' ' + text.substr(text.rfind("5=") + 2);
        return word;
    }
    static std::vector<std::string> answersTo(const std::string& request, const Answers& answers) {
        const auto exact = answers.find(request);
        const auto found = exact != answers.end() ? exact : answers.find(wordOf(request));
        return found != answers.end() ? found->second : std::vector<std::string>();
    }
};

} // namespace tivra_internal
