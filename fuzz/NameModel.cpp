// SPDX-License-Identifier: BSD-3-Clause
#include "fuzz/NameModel.h"

#include <algorithm>

namespace fuzz {

void NameModel::parse(const std::u16string& text)
{
    std::u16string part;
    for (char16_t character : text) {
        if (character != u'/') {
            part += character;
            continue;
        }
        add(part);
        part.clear();
    }
    add(part);
}

void NameModel::add(const std::u16string& part)
{
    if (part.empty())
        return;
    const std::size_t equals = part.find(u'=');
    const bool hasValue = equals != std::u16string::npos;
    const Attribute attribute(part.substr(0, equals),
                              hasValue ? part.substr(equals + 1) : std::u16string());
    // The newest of equal keys comes first.
    const auto position = std::find_if(
        m_attributes.begin(), m_attributes.end(),
        [&attribute](const Attribute& other) { return !(other.first < attribute.first); });
    m_attributes.insert(position, attribute);
}

std::u16string NameModel::concat(const std::u16string& separators) const
{
    const char16_t between = separators.empty() ? u'/' : separators[0];
    const char16_t equals = separators.size() < 2 ? u'=' : separators[1];
    std::u16string text;
    bool isFirst = true;
    for (const Attribute& attribute : m_attributes) {
        if (!isFirst)
            text += between;
        isFirst = false;
        text += attribute.first;
        if (!attribute.second.empty())
            text += equals + attribute.second;
    }
    return text;
}

std::u16string NameModel::value(const std::u16string& key) const
{
    for (const Attribute& attribute : m_attributes) {
        if (attribute.first == key)
            return attribute.second;
    }
    return {};
}

bool NameModel::equals(const QMultiMap<QString, QString>& map) const
{
    std::vector<Attribute> attributes;
    for (auto entry = map.cbegin(); entry != map.cend(); ++entry)
        attributes.emplace_back(entry.key().toStdU16String(), entry.value().toStdU16String());
    return attributes == m_attributes;
}

} // namespace fuzz
