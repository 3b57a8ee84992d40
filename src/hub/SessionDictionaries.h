#pragma once

#include <string>

#include <event/SessionEvent.h>

namespace tivra_internal {

class DictionaryCache;
class RetCodeTexts;

/// Return codes and dictionaries, which the hubs of a session load and share. @thread hub; every operation
/// locks for itself.
class SessionDictionaries {
public:
    virtual ~SessionDictionaries() = default;

    [[nodiscard]] virtual bool haveEnum() const = 0;
    virtual void setHaveEnum() = 0;
    [[nodiscard]] virtual const char* getRetCodeDesc(int code) const = 0;
    virtual void setRetCodeDesc(int code, const char* text, long length) = 0;
    /// Where the events of the user's identity find the text of a return code.
    [[nodiscard]] virtual const RetCodeTexts& getRetCodeTexts() const = 0;

    [[nodiscard]] virtual DictionaryCache& getDictionaryCache() = 0;
    virtual void startDicReload() = 0;
    virtual void insertSessionEvent(tivra::SessionEvent::Types type, const std::string& dicVersion,
                                    int sourceID, int queueDepth) = 0;
};

} // namespace tivra_internal
