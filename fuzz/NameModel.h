// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_FUZZ_NAMEMODEL_H
#define FERRULE_FUZZ_NAMEMODEL_H

#include <QtCore/QMultiMap>
#include <QtCore/QString>

#include <string>
#include <utility>
#include <vector>

namespace fuzz {

/*!
    The attributes of a one-line name as the documentation of SslCertificate says, written down once
    more without Qt's containers and string functions: a list in the order of the library's map.
*/
class NameModel
{
public:
    using Attribute = std::pair<std::u16string, std::u16string>;

    //! Adds the attributes of \a text.
    void parse(const std::u16string& text);

    std::u16string concat(const std::u16string& separators) const;

    //! Returns the value that was added last under \a key, or an empty string.
    std::u16string value(const std::u16string& key) const;

    const std::vector<Attribute>& attributes() const { return m_attributes; }

    //! Returns true if \a map holds the same attributes in the same order.
    bool equals(const QMultiMap<QString, QString>& map) const;

private:
    void add(const std::u16string& part);

    std::vector<Attribute> m_attributes;
};

} // namespace fuzz

#endif
