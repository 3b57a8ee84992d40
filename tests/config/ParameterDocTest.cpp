#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "ParameterDoc.h"

TEST(ParameterDoc, DocumentSaysWhatTheTablesSay) {
    std::ifstream file(TIVRA_SOURCE_DIR "/docs/parameters.md");
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_EQ(text, parameter_doc::wholeText())
        << "make it anew: build/debug/tests/config/tivra_parameters_doc > docs/parameters.md";
}
