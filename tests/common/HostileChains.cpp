// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/HostileChains.h"

#include "tests/common/DerWriter.h"
#include "tests/common/TestCertificates.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <functional>

namespace test {

namespace {

using der::Certificate;
using der::encode;
using der::sequence;
using der::value;

//! Leaves room for the other certificates of a chain, and for headers.
constexpr int ALMOST_ALL = HOSTILE_CHAIN_SIZE - 4096;

QByteArray number(int i)
{
    return QByteArray::number(i);
}

QByteArray serial(int i)
{
    return QByteArray(1, '\1') + char(i >> 16) + char(i >> 8) + char(i);
}

//! As many of \a one, which gets the number, as fit into \a size.
QByteArray fill(int size, const std::function<QByteArray(int)>& one)
{
    QByteArray all;
    for (int i = 0; all.size() < size; ++i)
        all += one(i);
    return all;
}

QList<QByteArray> fillChain(const QByteArray& end, const std::function<QByteArray(int)>& one)
{
    QList<QByteArray> ders = {end};
    int size = end.size();
    for (QByteArray next = one(0); size + next.size() < ALMOST_ALL; next = one(ders.size())) {
        ders.append(next);
        size += next.size();
    }
    return ders;
}

QByteArray alternativeNames(const QByteArray& names)
{
    return der::extension("551d11", sequence(names));
}

QByteArray constraints(unsigned char kind, const QByteArray& subtrees)
{
    return der::authorityExtension() + der::extension("551d1e", sequence(value(kind, subtrees)));
}

QByteArray subtree(const QByteArray& base)
{
    return sequence(base);
}

QList<QByteArray> namesAgainst(const QByteArray& names, const QByteArray& subtrees)
{
    constexpr unsigned char EXCLUDED = 0xA1;
    Certificate leaf;
    leaf.extensions = alternativeNames(names);
    Certificate issuer;
    issuer.subject = leaf.issuer;
    issuer.issuer = leaf.issuer;
    issuer.extensions = constraints(EXCLUDED, subtrees);
    return {encode(leaf), encode(issuer)};
}

QList<QByteArray> longNameAgainstLetters()
{
    const QByteArray name = value(der::DnsName, QByteArray(ALMOST_ALL / 2, 'a'));
    return namesAgainst(
        name, fill(ALMOST_ALL / 2 - 64, [](int) { return subtree(value(der::DnsName, "b")); }));
}

QList<QByteArray> manyNamesAgainstMany(int size)
{
    return namesAgainst(
        fill(size, [](int i) { return value(der::DnsName, number(i) + ".a"); }),
        fill(size, [](int i) { return subtree(value(der::DnsName, number(i) + ".b")); }));
}

QList<QByteArray> equalNamesAgainstLongOnes()
{
    const QByteArray text = QByteArray(250, 'a') + ".b";
    return namesAgainst(fill(200 * 1024, [&](int) { return value(der::DnsName, 'c' + text); }),
                        fill(200 * 1024, [&](int) { return subtree(value(der::DnsName, text)); }));
}

QList<QByteArray> directoryNames()
{
    const auto name = [](int i) { return value(der::DirectoryName, der::commonName(number(i))); };
    return namesAgainst(fill(24 * 1024, name),
                        fill(24 * 1024, [&](int i) { return subtree(name(i + 100000)); }));
}

QList<QByteArray> denseNames()
{
    Certificate leaf;
    leaf.subject = sequence(fill(ALMOST_ALL, [](int) { return der::attribute("550403", "a"); }));
    return {encode(leaf)};
}

//! Engines read forms that certificates must not have.
QList<QByteArray> namesWithoutALength()
{
    Certificate leaf;
    const QByteArray names = fill(ALMOST_ALL, [](int) { return value(der::DnsName, "a"); });
    leaf.extensions =
        der::extension("551d11", QByteArray("\x30\x80", 2) + names + QByteArray(2, '\0'));
    return {encode(leaf)};
}

QList<QByteArray> namesTornApart()
{
    constexpr unsigned char PIECES = der::OctetString | 0x20;
    Certificate leaf;
    const QByteArray names =
        sequence(fill(ALMOST_ALL, [](int) { return value(der::DnsName, "a"); }));
    leaf.extensions = sequence(der::object("551d11")
                               + value(PIECES, value(der::OctetString, names.left(1))
                                                   + value(der::OctetString, names.mid(1))));
    return {encode(leaf)};
}

QList<QByteArray> namesAtTheLimit()
{
    constexpr int ATTRIBUTES = 1600; // Of five values each.
    QByteArray names;
    for (int i = 0; i < ATTRIBUTES; ++i)
        names += der::attribute("550403", "A");
    return fillChain(encode(Certificate()), [&](int i) {
        Certificate one;
        one.subject = sequence(names);
        one.serial = serial(i);
        return encode(one);
    });
}

QList<QByteArray> longText()
{
    Certificate leaf;
    leaf.subject = der::commonName(QByteArray(ALMOST_ALL, 'A'));
    return {encode(leaf)};
}

QByteArray emptyExtension(int i)
{
    constexpr int OCTAL_FROM = 0100000; // Digits up to 7 make octets that end an identifier.
    return der::extension(
        QByteArray("2a0304").append(QByteArray::number(OCTAL_FROM + i, 8)).constData(), {});
}

QList<QByteArray> manyExtensions()
{
    Certificate leaf;
    leaf.extensions = fill(ALMOST_ALL, emptyExtension);
    return {encode(leaf)};
}

QList<QByteArray> extensionsAtTheLimit()
{
    Certificate one;
    for (int i = 0; i < 3000; ++i) // Of three values each.
        one.extensions += emptyExtension(i);
    const QByteArray end = encode(one);
    return fillChain(end, [&one](int i) {
        one.serial = serial(i);
        return encode(one);
    });
}

//! An identifier that takes as long to write in digits as its length squared.
QByteArray usages(const QByteArray& content)
{
    return der::authorityExtension() + der::extension("551d25", sequence(content));
}

QList<QByteArray> longObject()
{
    Certificate leaf;
    leaf.extensions = usages(value(der::Object, QByteArray(ALMOST_ALL, '\xFF') + '\1'));
    return {encode(leaf)};
}

//! Certificates of one name, of which each may have signed the first.
QList<QByteArray> namesakes(const std::function<Certificate(int)>& one)
{
    const Certificate leaf;
    return fillChain(encode(leaf), [&](int i) {
        Certificate issuer = one(i);
        issuer.subject = leaf.issuer;
        issuer.issuer = der::commonName("nobody");
        issuer.serial = serial(i);
        if (issuer.extensions.isEmpty())
            issuer.extensions = der::authorityExtension();
        return encode(issuer);
    });
}

QByteArray modulus(int bytes, int i)
{
    return QByteArray("\0\xC1", 2) + serial(i) + QByteArray(bytes - 6, '\x5B') + '\1';
}

QList<QByteArray> rsaNamesakes(int modulusBytes, int exponentBytes)
{
    QList<QByteArray> ders = namesakes([&](int i) {
        Certificate one;
        one.key = der::rsaKey(modulus(modulusBytes, i),
                              QByteArray(1, '\x7F') + QByteArray(exponentBytes - 1, '\xFF'));
        return one;
    });
    Certificate leaf;
    leaf.signature = QByteArray(modulusBytes, '\x11');
    ders[0] = encode(leaf);
    return ders;
}

//! The information of a key on the curve \a nid, as \a form says, and \a flag of its parameters.
QByteArray curveKey(int nid, point_conversion_form_t form, int flag)
{
    EC_GROUP* const group = EC_GROUP_new_by_curve_name(nid);
    if (!group)
        qFatal("HostileChains: there is no such curve");
    EC_GROUP_set_asn1_flag(group, flag);
    unsigned char* encoded = nullptr;
    const int length = i2d_ECPKParameters(group, &encoded);
    const QByteArray parameters(reinterpret_cast<const char*>(encoded), length);
    OPENSSL_free(encoded);
    const EC_POINT* const generator = EC_GROUP_get0_generator(group);
    QByteArray point(int(EC_POINT_point2oct(group, generator, form, nullptr, 0, nullptr)), '\0');
    EC_POINT_point2oct(group, generator, form, reinterpret_cast<unsigned char*>(point.data()),
                       std::size_t(point.size()), nullptr);
    EC_GROUP_free(group);
    return sequence(sequence(der::object("2a8648ce3d0201") + parameters) + der::bits(point));
}

QList<QByteArray> curveNamesakes(int nid, point_conversion_form_t form, int flag)
{
    constexpr int NUMBER_SIZE = 64;
    const QByteArray key = curveKey(nid, form, flag);
    QList<QByteArray> ders = namesakes([&](int) {
        Certificate one;
        one.key = key;
        return one;
    });
    const QByteArray half =
        value(der::Integer, QByteArray(1, '\x11') + QByteArray(NUMBER_SIZE - 1, '\x22'));
    Certificate leaf;
    leaf.algorithm = sequence(der::object("2a8648ce3d040302"));
    leaf.signature = sequence(half + half);
    ders[0] = encode(leaf);
    return ders;
}

QList<QByteArray> longLeafOfManyIssuers()
{
    Certificate leaf;
    leaf.extensions = der::extension("2a030405", QByteArray(ALMOST_ALL * 3 / 4, '\xFF'));
    const QList<QByteArray> issuers = namesakes([](int) { return Certificate(); });
    return QList<QByteArray>{encode(leaf)} + issuers.mid(1, issuers.size() / 5);
}

QList<QByteArray> shortest()
{
    return fillChain(encode(Certificate()), [](int i) {
        Certificate one;
        one.issuer = sequence({});
        one.subject = sequence({});
        one.serial = serial(i);
        one.key = sequence(sequence(der::object("2a03")) + der::bits({}));
        one.algorithm = sequence(der::object("2a03"));
        one.signature.clear();
        return encode(one);
    });
}

//! Each could have been issued by any of the next.
QList<QByteArray> ladder()
{
    constexpr int RUNGS = 18;
    const auto rung = [](int i) { return der::commonName("rung " + number(i)); };
    Certificate leaf;
    leaf.issuer = rung(0);
    return fillChain(encode(leaf), [&](int i) {
        Certificate one;
        one.subject = rung(i % RUNGS);
        one.issuer = rung((i + 1) % RUNGS);
        one.serial = serial(i);
        one.extensions = der::authorityExtension();
        return encode(one);
    });
}

QByteArray sign(Certificate one, const Identity& issuer)
{
    const QByteArray unsignedDer = encode(one);
    const auto* cursor = reinterpret_cast<const unsigned char*>(unsignedDer.constData());
    X509* const x509 = d2i_X509(nullptr, &cursor, unsignedDer.size());
    if (!x509 || X509_sign(x509, issuer.key(), EVP_sha256()) <= 0)
        qFatal("HostileChains: a certificate could not be signed");
    unsigned char* encoded = nullptr;
    const int length = i2d_X509(x509, &encoded);
    const QByteArray result(reinterpret_cast<const char*>(encoded), length);
    OPENSSL_free(encoded);
    X509_free(x509);
    return result;
}

QByteArray publicKeyOf(const Identity& identity)
{
    unsigned char* encoded = nullptr;
    const int length = i2d_PUBKEY(identity.key(), &encoded);
    const QByteArray result(reinterpret_cast<const char*>(encoded), length);
    OPENSSL_free(encoded);
    return result;
}

QByteArray nameOf(const Identity& identity)
{
    unsigned char* encoded = nullptr;
    const int length = i2d_X509_NAME(X509_get_subject_name(identity.x509()), &encoded);
    const QByteArray result(reinterpret_cast<const char*>(encoded), length);
    OPENSSL_free(encoded);
    return result;
}

//! An authority under a trusted root demands a policy and maps each to all others.
HostileChain policies(const char* name, int policyCount, int mappingCount)
{
    CertificateSpec spec;
    spec.isAuthority = true;
    spec.commonName = QStringLiteral("Root of policies");
    const Identity root = makeIdentity(spec);
    spec.commonName = QStringLiteral("Policies");
    const Identity middle = makeIdentity(spec, &root);
    const auto policy = [](int i) {
        return value(der::Object,
                     QByteArray("\x2A\x03", 2) + char(0x81 + (i >> 7)) + char(i & 0x7F));
    };
    QByteArray all;
    for (int i = 0; i < policyCount; ++i)
        all += sequence(policy(i + 1));
    QByteArray mappings;
    for (int i = 0; i < mappingCount; ++i)
        mappings += sequence(policy(i % policyCount + 1) + policy(i / policyCount + 1));
    Certificate authority;
    authority.issuer = nameOf(root);
    authority.subject = nameOf(middle);
    authority.key = publicKeyOf(middle);
    authority.extensions = der::authorityExtension() + der::extension("551d20", sequence(all))
                           + der::extension("551d24", sequence(value(0x80, QByteArray(1, '\0'))));
    if (mappingCount > 0)
        authority.extensions += der::extension("551d21", sequence(mappings));
    Certificate leaf;
    leaf.issuer = authority.subject;
    leaf.extensions = der::extension("551d20", sequence(all));
    return {name, {sign(leaf, middle), sign(authority, root)}, root.der()};
}

} // namespace

QList<HostileChain> hostileChains()
{
    constexpr int EXPLICIT = 0;
    constexpr int NAMED = OPENSSL_EC_NAMED_CURVE;
    constexpr auto WHOLE = POINT_CONVERSION_UNCOMPRESSED;
    constexpr auto HALF = POINT_CONVERSION_COMPRESSED;
    return {
        {"one long name, many letters as constraints", longNameAgainstLetters(), {}},
        {"names and constraints, some", manyNamesAgainstMany(7000), {}},
        {"names and constraints, very many", manyNamesAgainstMany(ALMOST_ALL / 2 - 64), {}},
        {"long names that are nearly equal", equalNamesAgainstLongOnes(), {}},
        {"directory names", directoryNames(), {}},
        {"a name of very many parts", denseNames(), {}},
        {"names in a value without a length", namesWithoutALength(), {}},
        {"names in octets in pieces", namesTornApart(), {}},
        {"names of as many parts as are read", namesAtTheLimit(), {}},
        {"a name of a megabyte", longText(), {}},
        {"extensions", manyExtensions(), {}},
        {"as many extensions as are read", extensionsAtTheLimit(), {}},
        {"a usage of a megabyte", longObject(), {}},
        {"RSA keys with huge exponents", rsaNamesakes(384, 383), {}},
        {"RSA keys of 16384 bits", rsaNamesakes(2048, 8), {}},
        {"RSA keys of 2048 bits", rsaNamesakes(256, 3), {}},
        {"keys on P-256", curveNamesakes(NID_X9_62_prime256v1, WHOLE, NAMED), {}},
        {"keys on P-521", curveNamesakes(NID_secp521r1, WHOLE, NAMED), {}},
        {"keys on P-521, half of them", curveNamesakes(NID_secp521r1, HALF, NAMED), {}},
        {"keys on a described curve", curveNamesakes(NID_secp521r1, HALF, EXPLICIT), {}},
        {"keys on a binary curve", curveNamesakes(NID_sect571r1, WHOLE, NAMED), {}},
        {"a long certificate, many issuers", longLeafOfManyIssuers(), {}},
        {"the shortest certificates", shortest(), {}},
        {"a ladder of namesakes", ladder(), {}},
        policies("policies", 31, 0),
        policies("policies with mappings", 31, 190),
        policies("policies, very many mappings", 31, 900),
    };
}

} // namespace test
