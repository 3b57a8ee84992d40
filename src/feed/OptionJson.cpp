#include "feed/OptionFile.h"

#include <cstddef>
#include <cstdint>
#include <iterator>

#include <nlohmann/json.hpp>

#include "feed/OptionSetter.h"

namespace tivra_internal {
namespace {

/// Goes over a text and counts the lines, for all its copies together.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* place, std::size_t& line) : m_place(place), m_line(&line) {}

    reference operator*() const { return *m_place; }
    CountingIterator& operator++() {
        *m_line += *m_place == '\n' ? 1U : 0U;
        ++m_place;
        return *this;
    }
    CountingIterator operator++(int) {
        const CountingIterator old = *this;
        ++*this;
        return old;
    }
    friend bool operator==(const CountingIterator& a, const CountingIterator& b) {
        return a.m_place == b.m_place;
    }

private:
    const char* m_place;
    std::size_t* m_line;
};

/// Hears what stands in the file, in its order: one object of single values and lists of texts.
class OptionReader final : public nlohmann::json_sax<nlohmann::json> {
public:
    OptionReader(const std::string& path, const std::size_t& line, OptionSetter& setter)
        : m_path(path), m_line(line), m_setter(setter) {}

    bool null() override { refuse("null is no value"); }
    bool boolean(bool value) override { return take(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return take(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return take(std::to_string(value)); }
    bool number_float(number_float_t, const string_t& text) override { return take(text); }
    bool string(string_t& text) override {
        if (!m_isInList)
            return take(text);
        m_list.append(m_list.empty() ? "" : ",").append(text);
        return true;
    }
    bool binary(binary_t&) override { refuse("a value can't be meant"); }
    bool start_object(std::size_t) override {
        if (std::exchange(m_isInObject, true))
            refuse("an object is no value");
        return true;
    }
    bool key(string_t& name) override {
        m_name = name;
        m_where = m_path + ':' + std::to_string(m_line);
        return true;
    }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override {
        if (!m_isInObject || std::exchange(m_isInList, true))
            refuse("a list can't be meant there");
        m_list.clear();
        return true;
    }
    bool end_array() override {
        m_isInList = false;
        m_setter.set(m_name, m_list, m_where, OptionSetter::Form::List);
        return true;
    }
    // The exception's text may show what stands there, which may be a password.
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override {
        refuseOptionAt(m_path + ':' + std::to_string(m_line), "there is no JSON from here on", "give JSON");
    }

private:
    bool take(const std::string& text) {
        if (!m_isInObject)
            refuse("the file is no object");
        if (m_isInList)
            refuse("a member of the list is no text");
        m_setter.set(m_name, text, m_where);
        return true;
    }
    [[noreturn]] void refuse(const char* cause) const {
        refuseOptionAt(m_path + ':' + std::to_string(m_line), cause);
    }

    const std::string& m_path;
    const std::size_t& m_line;
    OptionSetter& m_setter;
    std::string m_name; ///< of the value that comes
    std::string m_where;
    std::string m_list;
    bool m_isInObject = false;
    bool m_isInList = false;
};

} // namespace

void readJson(std::string_view text, const std::string& path, OptionSetter& setter) {
    std::size_t line = 1;
    OptionReader reader(path, line, setter);
    static_cast<void>(nlohmann::json::sax_parse(CountingIterator(text.data(), line),
                                                CountingIterator(text.data() + text.size(), line), &reader));
}

} // namespace tivra_internal
