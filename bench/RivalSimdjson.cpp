#include "Rivals.h"

#include <simdjson.h>

namespace tivra_bench {

namespace {

class SimdjsonRival : public Rival {
public:
    explicit SimdjsonRival(const std::string& jsonLines) : m_lines(jsonLines) {}

    double parseAll() override {
        double sum = 0;
        simdjson::ondemand::document_stream stream;
        if (m_parser.iterate_many(m_lines, 1 << 20).get(stream))
            return -1;
        for (auto document : stream)
            for (auto field : document.get_object())
                sum += convert(field.value());
        return sum;
    }

private:
    static double convert(simdjson::ondemand::value value) {
        if (value.type() == simdjson::ondemand::json_type::string) {
            std::string_view text = value.get_string();
            return static_cast<double>(text.size());
        }
        simdjson::ondemand::number number = value.get_number();
        return number.is_double() ? number.get_double() : static_cast<double>(number.get_int64());
    }

    simdjson::ondemand::parser m_parser;
    simdjson::padded_string m_lines;
};

} // namespace

std::unique_ptr<Rival> newSimdjsonRival(const std::string& jsonLines) {
    return std::make_unique<SimdjsonRival>(jsonLines);
}

} // namespace tivra_bench
