#include "RoadShapes.h"

#include <algorithm>
#include <random>
#include <vector>

#include <tivra_sim/Dictionary.h>
#include <tivra_sim/Wire.h>

namespace tivra_bench {
namespace {

constexpr std::size_t kLayoutFields = 10;
constexpr std::size_t kMostPairs = 2000;

/// Fields of the day's kind, which an application gets to see.
std::vector<tivra_sim::DictionaryRow> numericFields() {
    std::vector<tivra_sim::DictionaryRow> fields;
    for (tivra_sim::DictionaryRow& row : tivra_sim::builtinDictionary())
        if (row.number > 100 && row.number < 200 && (row.type == "FLOAT" || row.type == "INTEGER"))
            fields.push_back(std::move(row));
    return fields;
}

class ShapeMaker {
public:
    ShapeMaker(const Shape& shape, int source) : m_shape(shape), m_source(source) {
        for (unsigned i = 0; i < shape.layouts; ++i) {
            m_layouts.push_back(m_fields);
            if (shape.layouts > 1) {
                std::shuffle(m_layouts.back().begin(), m_layouts.back().end(), m_random);
                m_layouts.back().resize(kLayoutFields);
            }
        }
    }

    std::string next() {
        const std::string source = std::to_string(m_source);
        std::string body = "3=" + source + "|4=" + source + "|5=" + symbol();
        const auto& layout = m_layouts[m_random() % m_layouts.size()];
        switch (m_shape.kind) {
        case Shape::NUMBERS:
            addNumbers(body, layout);
            break;
        case Shape::TEXT_END:
            for (std::size_t i = 0; i < kLayoutFields - 1; ++i)
                addNumber(body, layout[i]);
            body += "|105=PACIFIC";
            break;
        case Shape::LONG_TEXTS:
            for (std::size_t i = 0; i < 3; ++i)
                addNumber(body, layout[i]);
            for (const char* token : {"|301=", "|308=", "|309="})
                body.append(token).append(m_shape.length, 'x');
            break;
        }
        return tivra_sim::encodeFrame(body);
    }

private:
    std::string symbol() {
        static constexpr const char* kFew[] = {"AIG", "BAC", "IBM", "SPY"};
        if (m_shape.symbols <= 4)
            return kFew[m_random() % 4];
        return std::string("S").append(std::to_string(m_random() % m_shape.symbols));
    }

    void addNumbers(std::string& body, const std::vector<tivra_sim::DictionaryRow>& layout) {
        const std::size_t room =
            m_shape.length > tivra_sim::FRAME_OVERHEAD ? m_shape.length - tivra_sim::FRAME_OVERHEAD : 0;
        const std::size_t pairs = m_shape.pairs > 0 ? m_shape.pairs - 3 // beside permission, source, symbol
                                  : room > 0        ? kMostPairs
                                                    : std::min(layout.size(), kLayoutFields);
        for (std::size_t i = 0; i < pairs; ++i) {
            std::string longer = body;
            addNumber(longer, layout[i % layout.size()]);
            if (room > 0 && longer.size() > room)
                break;
            body = std::move(longer);
        }
    }

    void addNumber(std::string& body, const tivra_sim::DictionaryRow& field) {
        body.append("|").append(std::to_string(field.number)).append("=");
        body.append(std::to_string(m_random() % 1000));
        if (field.type == "FLOAT")
            body.append(".").append(std::to_string(10 + m_random() % 90));
    }

    const Shape m_shape;
    const int m_source;
    const std::vector<tivra_sim::DictionaryRow> m_fields = numericFields();
    std::vector<std::vector<tivra_sim::DictionaryRow>> m_layouts;
    std::mt19937 m_random{7};
};

} // namespace

ShapedFrames::ShapedFrames(const Shape& shape, int source, std::size_t size) {
    ShapeMaker maker(shape, source);
    while (bytes.size() < size) {
        bytes += maker.next();
        ++count;
    }
}

} // namespace tivra_bench
