// SPDX-License-Identifier: BSD-3-Clause
#include "chains/StoreMemory.h"

#include "tests/common/DerWriter.h"

#include <Ferrule/WinCertStore.h>

#include <malloc.h>

namespace bench {

namespace {

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

constexpr int VERIFICATIONS = 1000000;
constexpr int WARM_UP = 1000;
constexpr double MEBIBYTE = 1024 * 1024;
constexpr double STRANGERS_LIMIT = 32;

SslCertificateChain parse(const QList<QByteArray>& ders)
{
    SslCertificateChain chain;
    for (const QByteArray& der : ders) {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(der.constData());
        chain << SslCertificatePtr(
            new SslCertificate(SslCertificate::readDer(bytes, der.size()), true));
    }
    return chain;
}

//! What the process has allocated and not freed.
double bytesInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

QByteArray stranger(int number, const QByteArray& issuer, const QByteArray& subject)
{
    test::der::Certificate one;
    one.issuer = test::der::commonName(issuer);
    one.subject = test::der::commonName(subject);
    one.serial = QByteArray(1, '\1') + char(number >> 16) + char(number >> 8) + char(number);
    one.extensions = test::der::authorityExtension();
    return test::der::encode(one);
}

double bytesOfKnown(const QList<QByteArray>& known, int count)
{
    vela::WinCertStore store(nullptr);
    const SslCertificateChain chain = parse(known);
    for (int i = 0; i < WARM_UP; ++i)
        store.verify(chain);
    const double before = bytesInUse();
    for (int i = 0; i < count; ++i)
        store.verify(chain);
    return (bytesInUse() - before) / count;
}

double mebibytesOfStrangers(int count)
{
    vela::WinCertStore store(nullptr);
    const double before = bytesInUse();
    for (int i = 0; i < count; ++i) {
        const QByteArray number = QByteArray::number(i);
        store.verify(parse({stranger(i, "Authority " + number, "host " + number),
                            stranger(i, "Root " + number, "Authority " + number),
                            stranger(i, "Root " + number, "Root " + number)}));
    }
    return (bytesInUse() - before) / MEBIBYTE;
}

Key keyOf(const char* what, const char* subject)
{
    return {QString::fromLatin1(what), {}, {}, QString::fromLatin1(subject)};
}

} // namespace

void measureMemory(const QList<QByteArray>& known, const Options& options, Results& results)
{
    const char* const each = "kept of each verification of a known chain";
    const char* const all = "kept after a million chains of strangers";
    const int count = scaled(options, VERIFICATIONS);
    results.add(keyOf(each, "Ferrule"), bytesOfKnown(known, count), QStringLiteral("bytes"),
                Better::Less);
    results.add(keyOf(all, "Ferrule"), mebibytesOfStrangers(count), QStringLiteral("MiB"),
                Better::Less);
    results.add(keyOf(all, "limit"), STRANGERS_LIMIT, QStringLiteral("MiB"), Better::Less);
    results.expect(keyOf(all, "Ferrule"), keyOf(all, "limit"), 1);
}

} // namespace bench
