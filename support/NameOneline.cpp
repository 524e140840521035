// SPDX-License-Identifier: BSD-3-Clause
#include "support/NameOneline.h"

#include "support/OpenSslCompat.h"

#include <openssl/objects.h>

#include <cstring>

namespace vela {

namespace {

constexpr int MAX_LENGTH = 1024 * 1024;
//! Longer identifiers are cut, as the reference engine cuts them.
constexpr int OBJECT_TEXT_SIZE = 80;

//! Has a name in the second engine alone although its number is among the reference engine's.
constexpr int UNIQUE_IDENTIFIER_NID = 102;
//! The one named identifier of the reference engine that the second engine has dropped.
constexpr char RUN_LENGTH_COMPRESSION_OID[] = "1.1.1.1.666.1";
constexpr char RUN_LENGTH_COMPRESSION_NAME[] = "RLE";

bool hasReferenceName(int nid)
{
    return nid != NID_undef && nid < REFERENCE_ENGINE_NID_COUNT && nid != UNIQUE_IDENTIFIER_NID;
}

QByteArray fieldName(const ASN1_OBJECT* object)
{
    const int nid = OBJ_obj2nid(object);
    const char* name = hasReferenceName(nid) ? OBJ_nid2sn(nid) : nullptr;
    if (name)
        return name;

    char text[OBJECT_TEXT_SIZE] = "";
    OBJ_obj2txt(text, sizeof text, object, 1);
    if (std::strcmp(text, RUN_LENGTH_COMPRESSION_OID) == 0)
        return RUN_LENGTH_COMPRESSION_NAME;
    return text;
}

//! A GeneralString of four-byte characters that all fit into one byte is written by that byte.
bool isWideLatin(const ASN1_STRING* value)
{
    if (value->type != V_ASN1_GENERALSTRING || value->length % 4 != 0)
        return false;
    for (int i = 0; i < value->length; ++i) {
        if (i % 4 != 3 && value->data[i] != 0)
            return false;
    }
    return true;
}

} // namespace

QByteArray nameOnelineValue(const ASN1_STRING* value)
{
    static const char hex[] = "0123456789ABCDEF";
    const bool wide = isWideLatin(value);
    QByteArray text;
    for (int i = wide ? 3 : 0; i < value->length; i += wide ? 4 : 1) {
        const unsigned char byte = value->data[i];
        if (byte >= ' ' && byte <= '~') {
            text += char(byte);
            continue;
        }
        text += "\\x";
        text += hex[byte >> 4];
        text += hex[byte & 0x0F];
    }
    return text;
}

QString nameOneline(const X509_NAME* name)
{
    if (!name)
        return QString::fromLatin1("NO X509_NAME");

    // OpenSSL 1.0.2 reads names without saying const.
    auto* entries = const_cast<X509_NAME*>(name);
    QByteArray text;
    for (int i = 0; i < X509_NAME_entry_count(entries); ++i) {
        X509_NAME_ENTRY* entry = X509_NAME_get_entry(entries, i);
        const ASN1_STRING* value = X509_NAME_ENTRY_get_data(entry);
        if (value->length > MAX_LENGTH)
            return QString();
        text += '/' + fieldName(X509_NAME_ENTRY_get_object(entry)) + '=' + nameOnelineValue(value);
        if (text.size() > MAX_LENGTH)
            return QString();
    }
    return QString::fromLatin1(text);
}

} // namespace vela
