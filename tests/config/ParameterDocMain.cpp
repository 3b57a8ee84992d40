#include <cstdio>

#include "ParameterDoc.h"

int main() {
    const std::string text = parameter_doc::wholeText();
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
}
