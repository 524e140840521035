// SPDX-License-Identifier: BSD-3-Clause

//! Host names against certificates. The first line of an input is the host, in UTF-8; each other
//! one is a name in the certificate, as test::certificateFor() takes them, or "RAW:" and the
//! content of an extension with alternative names as hex digits.

#include "fuzz/Harness.h"
#include "tests/common/HostNameOracle.h"
#include "tests/common/NamedCertificate.h"

#include <Ferrule/SslCertificate.h>

#include <algorithm>

namespace {

using vela::AlternativeName;
using vela::SslCertificate;
using vela::X509Handle;

X509Handle certificateIn(const QList<QByteArray>& names)
{
    for (const QByteArray& name : names) {
        if (name.startsWith("RAW:")) {
            const QByteArray content = QByteArray::fromHex(name.mid(4));
            return test::certificateOf(test::der::attribute("550403", "a.example"),
                                       test::der::alternativeNamesExtension(content));
        }
    }
    return test::certificateFor(names);
}

bool isShowable(const QString& text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) {
        return c > QLatin1Char(' ') && c <= QLatin1Char('~') && c != QLatin1Char('<')
               && c != QLatin1Char('>') && c != QLatin1Char('"');
    });
}

QString withOtherCase(QString text)
{
    for (QChar& c : text) {
        const ushort code = c.unicode();
        if ((code >= 'a' && code <= 'z') || (code >= 'A' && code <= 'Z'))
            c = QChar(code ^ 0x20);
    }
    return text;
}

bool isAscii(const QString& text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
}

void checkOtherForms(const SslCertificate& certificate, const QString& host, bool matched)
{
    // Where a zone follows, it may be of any case.
    FUZZ_CHECK(certificate.matchesHost(withOtherCase(host)) == matched || !isAscii(host));
    const bool isName = test::HostNameOracle::isHostName(host.toUtf8());
    if (isName)
        FUZZ_CHECK(certificate.matchesHost(host + QLatin1Char('.')) == matched);
    const QString encoded = QString::fromLatin1(QUrl::toAce(host));
    if (!isAscii(host) && host.size() <= 253)
        FUZZ_CHECK(certificate.matchesHost(encoded) == matched || !matched);
    if (!isAscii(host) && test::HostNameOracle::isHostName(encoded.toLatin1())
        && host.size() <= 253)
        FUZZ_CHECK(certificate.matchesHost(encoded) == matched);
    FUZZ_CHECK(!certificate.matchesHost(host + QChar(0)));
    FUZZ_CHECK(!certificate.matchesHost(host + QChar(0) + host));
}

void checkNames(const SslCertificate& certificate)
{
    const QVector<AlternativeName> names = certificate.alternativeNames();
    for (const AlternativeName& name : names) {
        FUZZ_CHECK(isShowable(name.text));
        FUZZ_CHECK(!name.isValid || !name.text.contains(QLatin1Char('\\')));
        FUZZ_CHECK(name.address.isNull() != (name.isValid && name.kind == name.IpAddress));
        if (!name.isValid || (name.kind != name.DnsName && name.kind != name.IpAddress))
            continue;
        QString host = name.text;
        if (host.startsWith(QLatin1Char('*')))
            host.replace(0, 1, QLatin1Char('a'));
        FUZZ_CHECK(certificate.matchesHost(host, SslCertificate::AlternativeNamesOnly));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QList<QByteArray> lines =
        QByteArray(reinterpret_cast<const char*>(data), int(size)).split('\n');
    const QByteArray line = lines.takeFirst();
    const QString host = QString::fromUtf8(line.constData(), line.size());
    const X509Handle x509 = certificateIn(lines);
    if (!x509)
        return 0; // OpenSSL has found the subject too odd.
    const test::HostNameOracle oracle(x509.get(), host);
    const bool engineMatched = oracle.engineMatches();

    const fuzz::ErrorQueueWatch watch;
    const SslCertificate certificate(x509.get(), false);
    const bool matched = certificate.matchesHost(host);
    FUZZ_CHECK(matched == engineMatched || !oracle.reasonOfDifference(matched).isEmpty());
    FUZZ_CHECK(matched || !certificate.matchesHost(host, SslCertificate::AlternativeNamesOnly));
    FUZZ_CHECK(!matched || !host.contains(QChar(0)));
    checkOtherForms(certificate, host, matched);
    checkNames(certificate);
    return 0;
}
