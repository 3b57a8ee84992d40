#include <tp/wipe.h>

#include <cstring>

namespace tp {

void wipe(std::string& text) noexcept {
    // Moves no memory, so that nothing stays behind elsewhere.
    text.resize(text.capacity());
    // Unlike a plain fill it isn't left out because nobody reads the text any more.
    ::explicit_bzero(text.data(), text.size());
    text.clear();
}

} // namespace tp
