// SPDX-License-Identifier: BSD-3-Clause
#include "chains/HostileInputs.h"

#include "tests/common/HostileChains.h"

#include <Ferrule/WinCertStore.h>

#include <openssl/x509.h>

#include <ctime>

namespace bench {

namespace {

using vela::SslCertificate;
using vela::SslCertificateChain;
using vela::SslCertificatePtr;

const QList<test::HostileChain>& inputs()
{
    static const QList<test::HostileChain> all = test::hostileChains();
    return all;
}

SslCertificatePtr parse(const QByteArray& der)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(der.constData());
    return SslCertificatePtr(new SslCertificate(SslCertificate::readDer(bytes, der.size()), true));
}

//! Parsing is not counted: a handshake has done that before a store is asked.
double measure(const test::HostileChain& input)
{
    SslCertificateChain chain;
    for (const QByteArray& der : input.ders)
        chain << parse(der);
    vela::WinCertStore store(nullptr);
    const std::clock_t start = std::clock();
    store.verify(chain);
    return static_cast<double>(std::clock() - start) * 1e6 / CLOCKS_PER_SEC;
}

} // namespace

QByteArray hostileRoots()
{
    QByteArray pem;
    for (const test::HostileChain& input : inputs()) {
        if (!input.root.isEmpty())
            pem += parse(input.root)->encodePem().toLatin1();
    }
    return pem;
}

void addHostileTasks(QList<std::function<void(bool)>>& tasks, Results& results)
{
    for (const test::HostileChain& input : inputs()) {
        const QString what = QStringLiteral("made to be dear: ") + QLatin1String(input.name);
        const Key subject{what, {}, {}, QStringLiteral("Ferrule")};
        const Key limit{what, {}, {}, QStringLiteral("limit")};
        tasks.append([&results, &input, subject, limit](bool counts) {
            const double microseconds = measure(input);
            if (!counts)
                return;
            results.add(subject, microseconds, QStringLiteral("us"), Better::Less);
            results.add(limit, HOSTILE_LIMIT, QStringLiteral("us"), Better::Less);
        });
        results.expect(subject, limit, 1);
    }
}

} // namespace bench
