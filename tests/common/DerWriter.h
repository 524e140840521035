// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_DERWRITER_H
#define FERRULE_TESTS_DERWRITER_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace test {

/*
    Certificates put together octet by octet: a million of them, or one that no tool would make.
*/
namespace der {

enum Tag : unsigned char {
    Boolean = 0x01,
    Integer = 0x02,
    BitString = 0x03,
    OctetString = 0x04,
    Null = 0x05,
    Object = 0x06,
    Utf8String = 0x0C,
    UtcTime = 0x17,
    Sequence = 0x30,
    Set = 0x31,
    DnsName = 0x82,
    DirectoryName = 0xA4,
};

inline QByteArray value(unsigned char tag, const QByteArray& content)
{
    QByteArray length;
    for (int rest = content.size(); rest > 0; rest >>= 8)
        length.prepend(char(rest & 0xFF));
    QByteArray result(1, char(tag));
    if (content.size() < 0x80)
        return result + char(content.size()) + content;
    return result + char(0x80 | length.size()) + length + content;
}

inline QByteArray sequence(const QByteArray& content)
{
    return value(Sequence, content);
}

inline QByteArray bits(const QByteArray& content)
{
    return value(BitString, QByteArray(1, '\0') + content);
}

inline QByteArray object(const char* hex)
{
    return value(Object, QByteArray::fromHex(hex));
}

//! One attribute of a distinguished name, in a part of its own.
inline QByteArray attribute(const char* objectHex, const QByteArray& text)
{
    return value(Set, sequence(object(objectHex) + value(Utf8String, text)));
}

inline QByteArray commonName(const QByteArray& text)
{
    return sequence(attribute("550403", text));
}

inline QByteArray extension(const char* objectHex, const QByteArray& content)
{
    return sequence(object(objectHex) + value(OctetString, content));
}

inline QByteArray authorityExtension()
{
    return extension("551d13", sequence(value(Boolean, QByteArray(1, '\xFF'))));
}

//! The information of an RSA key; both numbers are positive, their first bits aside.
inline QByteArray rsaKey(const QByteArray& modulus, const QByteArray& exponent)
{
    const QByteArray key = sequence(value(Integer, modulus) + value(Integer, exponent));
    return sequence(sequence(object("2a864886f70d010101") + value(Null, {})) + bits(key));
}

/*!
    The information of a key on a curve that it describes itself: the modulus is no prime, and the
    generator half a point, for whose other half some engines search for ever.
*/
inline QByteArray unendingKey()
{
    const QByteArray modulus("\x46\x02\x01", 3);
    const QByteArray field = sequence(object("2a8648ce3d0101") + value(Integer, modulus));
    const QByteArray a = value(OctetString, QByteArray("\0\0\1", 3));
    const QByteArray b = value(OctetString, QByteArray("\x20\xa7\xee", 3));
    const QByteArray generator = value(OctetString, QByteArray("\2\0\0\0", 4));
    const QByteArray one = value(Integer, QByteArray(1, '\1'));
    const QByteArray curve =
        sequence(one + field + sequence(a + b) + generator + value(Integer, modulus) + one);
    return sequence(sequence(object("2a8648ce3d0201") + curve) + bits(QByteArray("\2\0\0\0", 4)));
}

struct Certificate
{
    QByteArray issuer = commonName("issuer");
    QByteArray subject = commonName("subject");
    QByteArray serial = QByteArray(1, '\1');
    QByteArray key =
        rsaKey(QByteArray("\0\xC1", 2) + QByteArray(126, '\x5B') + '\1', QByteArray("\1\0\1", 3));
    QByteArray extensions; //!< One after the other.
    QByteArray algorithm = sequence(object("2a864886f70d01010b") + value(Null, {}));
    QByteArray signature = QByteArray(128, '\x11');
};

inline QByteArray encode(const Certificate& one)
{
    const QByteArray times = value(UtcTime, "200101000000Z") + value(UtcTime, "491231235959Z");
    QByteArray fields = value(0xA0, value(Integer, QByteArray(1, '\2')))
                        + value(Integer, one.serial) + one.algorithm + one.issuer + sequence(times)
                        + one.subject + one.key;
    if (!one.extensions.isEmpty())
        fields += value(0xA3, sequence(one.extensions));
    return sequence(sequence(fields) + one.algorithm + bits(one.signature));
}

} // namespace der

} // namespace test

#endif
