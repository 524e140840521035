// SPDX-License-Identifier: BSD-3-Clause
#include "client/PeerStore.h"

#include "common/CertificateRows.h"
#include "common/Judgement.h"

#include <Ferrule/SslSocket.h>

using vela::SslCertificateChain;

QString PeerStore::load(StoreChoice choice)
{
    if (choice == StoreChoice::None)
        return QString();
    if (choice == StoreChoice::System) {
        m_store = vela::CertificateStore::sslCertStore();
        return QString();
    }
    m_store = &m_bundle;
    QString summary;
    return importBundle(QStringLiteral(":/Certificates/RootCerts.pem"), vela::AcceptAlways,
                        m_bundle, summary);
}

StoreVerdict PeerStore::judge(const vela::SslSocket& socket)
{
    if (!m_store)
        return StoreVerdict();
    // The socket's chain goes with the connection, so that stores are given a copy.
    const SslCertificateChain chain =
        SslCertificateChain(socket.x509peerCertificateChain()).ownedCopy();
    const vela::CertVerify verdict = m_store->verify(chain);
    QString said = verdictName(verdict);
    if (chain.isEmpty())
        said += QStringLiteral("; the connection has no certificate chain");
    if (m_store != &m_bundle)
        return {verdict, {reportRow("store", QStringLiteral("system: ") + said)}};
    said += QStringLiteral("; this store does not judge");
    return {verdict, QStringList(reportRow("store", QStringLiteral("bundle: ") + said))
                         + judgementRows(chain)};
}

QStringList PeerStore::judgementRows(const SslCertificateChain& chain) const
{
    if (chain.isEmpty())
        return {reportRow("judgement", QStringLiteral("none: there is nothing to look for"))};
    return {reportRow("judgement", ::judge(m_bundle, chain)), cautionRow()};
}
