// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_NAMEDCERTIFICATE_H
#define FERRULE_TESTS_NAMEDCERTIFICATE_H

#include "support/OpenSslHandles.h"
#include "tests/common/DerWriter.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

namespace test {

namespace der {

inline QByteArray alternativeNamesExtension(const QByteArray& content)
{
    return extension("551d11", content);
}

inline QByteArray commonNameAttribute(unsigned char tag, const QByteArray& octets)
{
    return value(Set, sequence(object("550403") + value(tag, octets)));
}

//! The name of another kind that is known by its object identifier.
inline QByteArray otherName(const char* objectHex, const QByteArray& encodedValue)
{
    return value(0xA0, object(objectHex) + value(0xA0, encodedValue));
}

} // namespace der

//! Makes a certificate with \a extensions, which may be anything, and a subject of \a attributes.
inline vela::X509Handle certificateOf(const QByteArray& attributes, const QByteArray& extensions)
{
    der::Certificate certificate;
    certificate.subject = der::sequence(attributes);
    certificate.extensions = extensions;
    const QByteArray encoded = der::encode(certificate);
    const auto* cursor = reinterpret_cast<const unsigned char*>(encoded.constData());
    return vela::X509Handle(d2i_X509(nullptr, &cursor, encoded.size()));
}

/*!
    Returns the encoded alternative name that \a text describes: "DNS:", "MAIL:" or "URI:" and the
    octets of the name, "IP:" and its octets as hex digits, "SRV:" and the octets of a service name,
    "DIR:" and a common name, "ID:" and an object identifier as hex digits. Empty for others.
*/
inline QByteArray encodedName(const QByteArray& text)
{
    const int colon = text.indexOf(':');
    const QByteArray kind = text.left(colon);
    const QByteArray name = text.mid(colon + 1);
    if (kind == "DNS")
        return der::value(der::DnsName, name);
    if (kind == "MAIL")
        return der::value(0x81, name);
    if (kind == "URI")
        return der::value(0x86, name);
    if (kind == "IP")
        return der::value(0x87, QByteArray::fromHex(name));
    if (kind == "ID")
        return der::value(0x88, QByteArray::fromHex(name));
    if (kind == "DIR")
        return der::value(der::DirectoryName, der::commonName(name));
    if (kind == "SRV")
        return der::otherName("2b06010505070807", der::value(0x16, name));
    return {};
}

inline bool isUtf8(const QByteArray& text)
{
    return QString::fromUtf8(text).toUtf8() == text;
}

/*!
    Makes a certificate with the alternative names that \a names describe, and with a common name
   for each "CN:" among them, in order; "BMPCN:" takes octets of two for each character.
*/
inline vela::X509Handle certificateFor(const QList<QByteArray>& names)
{
    QByteArray attributes = der::attribute("55040a", "Names"); // an organisation
    QByteArray alternativeNames;
    for (const QByteArray& name : names) {
        if (name.startsWith("CN:"))
            attributes +=
                der::commonNameAttribute(isUtf8(name) ? der::Utf8String : 0x14, name.mid(3));
        else if (name.startsWith("BMPCN:"))
            attributes += der::commonNameAttribute(0x1E, name.mid(6));
        else
            alternativeNames += encodedName(name);
    }
    const QByteArray extension =
        alternativeNames.isEmpty()
            ? QByteArray()
            : der::alternativeNamesExtension(der::sequence(alternativeNames));
    return certificateOf(attributes, extension);
}

} // namespace test

#endif
