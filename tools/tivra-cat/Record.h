#pragma once

#include <tivra.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tivra_cat {

/// One field of a message, copied out of it.
struct Field {
    int token = 0;
    const std::string* name = nullptr; ///< lives as long as the FieldCatalog that gave it
    tivra::ValueTypes type = tivra::UNKNOWN;
    std::string text;    ///< as the library writes the value
    double number = 0.0; ///< of a DOUBLE or a DATETIME
};

/// An alternate identifier that came with a message.
struct Alternate {
    int token = 0;
    std::string name;
    std::string value;
};

/// A message copied out of its callback, so that another thread can print it.
struct Record {
    tivra::MessageEvent::Types type = tivra::MessageEvent::UPDATE;
    double received = 0.0; ///< seconds since the epoch
    int source = 0;
    int permission = 0;
    std::int64_t tag = 0;
    int statusCode = 0;
    std::string statusText;
    std::string command;    ///< of an answer: what was asked for
    std::string identifier; ///< of an answer: "CUSIP 459200101", when no symbol was named
    std::string symbol;
    std::vector<Field> fields;
    std::vector<Alternate> alternates;

    /// Whether it answers a request, with or without data of its own.
    [[nodiscard]] bool isAnswer() const {
        return type == tivra::MessageEvent::IMAGE_COMPLETE || type == tivra::MessageEvent::STATUS;
    }
    /// Whether it holds something to show.
    [[nodiscard]] bool hasData() const { return !isAnswer() || !fields.empty(); }
};

/// The fields that a Record keeps apart, beside source and symbol.
inline constexpr int kPermissionToken = 3;
inline constexpr int kTagToken = 5026;
inline constexpr int kCommandToken = 5022;
inline constexpr int kStatusToken = 5001;

} // namespace tivra_cat
