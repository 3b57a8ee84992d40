#include "Rivals.h"

#include <quickfix/FieldConvertors.h>
#include <quickfix/Message.h>

#include <map>

namespace tivra_bench {

namespace {

class QuickfixRival : public Rival {
public:
    explicit QuickfixRival(const std::vector<std::vector<RivalField>>& messages) {
        for (const auto& fields : messages) {
            // Numbers that are no part of the envelope.
            FIX::Message message;
            message.getHeader().setField(8, "FIX.4.4");
            message.getHeader().setField(35, "W");
            for (const RivalField& field : fields) {
                message.setField(5000 + field.token, field.value);
                m_kinds[5000 + field.token] = field.kind;
            }
            m_texts.push_back(message.toString());
        }
    }

    double parseAll() override {
        double sum = 0;
        for (const std::string& text : m_texts) {
            m_message.setString(text, false);
            for (FIX::FieldMap::const_iterator field = m_message.begin(); field != m_message.end(); ++field)
                sum += convert(*field);
        }
        return sum;
    }

private:
    double convert(const FIX::FieldBase& field) const {
        switch (m_kinds.at(field.getTag())) {
        case 'i':
            return static_cast<double>(FIX::IntConvertor::convert(field.getString()));
        case 'd':
            return FIX::DoubleConvertor::convert(field.getString());
        default:
            return static_cast<double>(field.getString().size());
        }
    }

    std::vector<std::string> m_texts;
    std::map<int, char> m_kinds;
    FIX::Message m_message;
};

} // namespace

std::unique_ptr<Rival> newQuickfixRival(const std::vector<std::vector<RivalField>>& messages) {
    return std::unique_ptr<Rival>(new QuickfixRival(messages));
}

} // namespace tivra_bench
