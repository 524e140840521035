// SPDX-License-Identifier: BSD-3-Clause
#include "fuzz/CertificateChecks.h"

#include "fuzz/Harness.h"
#include "fuzz/NameModel.h"
#include "support/OpenSslHandles.h"
#include "tests/common/PemFile.h"

#include <Ferrule/SslCertificate.h>

#include <QtCore/QBuffer>
#include <QtCore/QCryptographicHash>

#include <openssl/crypto.h>

#include <optional>

using vela::OpenSslString;
using vela::SslCertificate;
using vela::X509Handle;

namespace fuzz {

namespace {

using Attributes = QMultiMap<QString, QString>;

//! What OpenSSL alone says of a certificate.
struct Expectation
{
    explicit Expectation(X509* x509);

    static std::optional<NameModel> readName(X509_NAME* name);

    QByteArray serial;
    long version;
    // Only the reference engine writes names as hosts are to see them.
    std::optional<NameModel> issuer;
    std::optional<NameModel> subject;
};

Expectation::Expectation(X509* x509)
    : version(X509_get_version(x509))
    , issuer(readName(X509_get_issuer_name(x509)))
    , subject(readName(X509_get_subject_name(x509)))
{
    const ASN1_INTEGER* number = X509_get_serialNumber(x509);
    serial = QByteArray(reinterpret_cast<const char*>(number->data), number->length);
}

std::optional<NameModel> Expectation::readName(X509_NAME* name)
{
    if (SSLeay() >= 0x10100000L)
        return std::nullopt;
    const OpenSslString text(X509_NAME_oneline(name, nullptr, 0));
    NameModel model;
    if (text)
        model.parse(QString::fromLatin1(text.get()).toStdU16String());
    return model;
}

void checkEncodings(X509* x509, const QByteArray& der)
{
    FUZZ_CHECK(!der.isEmpty());
    const auto* bytes = reinterpret_cast<const unsigned char*>(der.constData());
    const X509Handle fromDer(SslCertificate::readDer(bytes, der.size()));
    FUZZ_CHECK(fromDer);
    FUZZ_CHECK(SslCertificate::encodeDer(fromDer.get()) == der);

    const QByteArray pem = test::toPem(der);
    FUZZ_CHECK(SslCertificate::encodePem(x509) == QString::fromLatin1(pem));
    QBuffer device;
    device.open(QIODevice::WriteOnly);
    SslCertificate::writePem(x509, &device);
    FUZZ_CHECK(device.data() == pem);

    const SslCertificate original(x509, false);
    const SslCertificate readBack(pem.constData(), pem.size());
    FUZZ_CHECK(!readBack.isEmpty());
    FUZZ_CHECK(readBack == original);
    FUZZ_CHECK(readBack.encodePem() == original.encodePem());
    FUZZ_CHECK(readBack.issuerAttributes() == original.issuerAttributes());
    FUZZ_CHECK(readBack.subjectAttributes() == original.subjectAttributes());
    FUZZ_CHECK(readBack.serialNumber() == original.serialNumber());
    FUZZ_CHECK(readBack.validFrom() == original.validFrom());
    FUZZ_CHECK(readBack.validUntil() == original.validUntil());
}

template <typename Lookup>
void checkLookups(const Attributes& attributes, Lookup lookup)
{
    const QList<QString> keys = attributes.uniqueKeys();
    for (const QString& key : keys)
        FUZZ_CHECK(lookup(key) == attributes.value(key.toUpper()));
}

void checkContents(const SslCertificate& certificate, const QByteArray& der,
                   const Expectation& expected)
{
    FUZZ_CHECK(certificate.sha1Digest() == QCryptographicHash::hash(der, QCryptographicHash::Sha1));
    FUZZ_CHECK(certificate.md5Digest() == QCryptographicHash::hash(der, QCryptographicHash::Md5));
    FUZZ_CHECK(certificate.validFrom().isValid());
    FUZZ_CHECK(certificate.validUntil().isValid());
    FUZZ_CHECK(certificate.serialNumber() == expected.serial);
    FUZZ_CHECK(certificate.version() == expected.version);
    FUZZ_CHECK(certificate.cipher().authenticationBits >= 0);
    FUZZ_CHECK(certificate.cipher().authenticationBits % 8 == 0);

    const Attributes& issuer = certificate.issuerAttributes();
    const Attributes& subject = certificate.subjectAttributes();
    FUZZ_CHECK(!expected.issuer || expected.issuer->equals(issuer));
    FUZZ_CHECK(!expected.subject || expected.subject->equals(subject));
    checkLookups(issuer, [&](const QString& key) { return certificate.issuerAttribute(key); });
    checkLookups(subject, [&](const QString& key) { return certificate.subjectAttribute(key); });
}

} // namespace

void checkCertificate(X509* x509)
{
    const Expectation expected(x509);
    const ErrorQueueWatch watch;
    const QByteArray der = SslCertificate::encodeDer(x509);
    checkEncodings(x509, der);

    const SslCertificate certificate(x509, false);
    checkContents(certificate, der, expected);
    const SslCertificate copy(certificate);
    FUZZ_CHECK(copy == certificate && copy.x509() == x509);
    checkContents(copy, der, expected);
    SslCertificate assigned;
    assigned = certificate;
    FUZZ_CHECK(assigned == certificate && assigned.x509() == x509);
    checkContents(assigned, der, expected);
    assigned.clear();
    FUZZ_CHECK(assigned == SslCertificate());
}

} // namespace fuzz
