#include "FieldSelection.h"

#include "ExitCode.h"

#include <fmt/format.h>

#include <algorithm>

namespace tivra_cat {

int FieldChoice::rankOf(int token, const std::string& name) const {
    const auto found = std::find_if(alternatives.begin(), alternatives.end(), [&](const std::string& wanted) {
        return wanted == name || wanted == std::to_string(token);
    });
    return found == alternatives.end() ? -1 : static_cast<int>(found - alternatives.begin());
}

FieldSelection::FieldSelection(const std::vector<std::string>& entries) {
    for (const std::string& entry : entries) {
        FieldChoice choice;
        const std::size_t equals = entry.find('=');
        std::string names = equals == std::string::npos ? entry : entry.substr(equals + 1);
        choice.label = entry.substr(0, equals == std::string::npos ? entry.find('/') : equals);
        names.push_back('/');
        for (std::size_t begin = 0, slash = 0; (slash = names.find('/', begin)) != std::string::npos;
             begin = slash + 1)
            choice.alternatives.push_back(names.substr(begin, slash - begin));
        const auto isEmpty = [](const std::string& name) { return name.empty(); };
        if (std::any_of(choice.alternatives.begin(), choice.alternatives.end(), isEmpty))
            throw Failure(ExitCode::Usage, fmt::format("--fields: \"{}\" names an empty field", entry));
        m_choices.push_back(std::move(choice));
    }
}

bool FieldSelection::contains(int token, const std::string& name) const {
    return selectsAll() || std::any_of(m_choices.begin(), m_choices.end(), [&](const FieldChoice& choice) {
               return choice.rankOf(token, name) >= 0;
           });
}

} // namespace tivra_cat
