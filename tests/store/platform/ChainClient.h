// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_CHAINCLIENT_H
#define FERRULE_TESTS_CHAINCLIENT_H

#include "store/platform/TrustPlatform.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QStringList>

#include <optional>

namespace test {

//! Renders status bits as the names of CryptoAPI without CERT_TRUST_, sorted; for readable
//! failures.
QStringList errorNames(DWORD errors);
QStringList infoNames(DWORD info);

struct ChainQuestion
{
    QByteArray certificate;
    std::optional<qint64> time; //!< Seconds since the epoch; now without.
    QList<QByteArray> usages;
    DWORD usageMatch = USAGE_MATCH_TYPE_AND;
    HCERTSTORE additionalStore = nullptr;
};

struct ChainAnswer
{
    DWORD errors = 0;
    DWORD info = 0;
    QList<DWORD> elementErrors;
    QList<DWORD> elementInfos;
    QList<QByteArray> certificates;
};

//! Fatal for the test program if \a context is not of the form in which the platform answers.
ChainAnswer answerOf(PCCERT_CHAIN_CONTEXT context);
FILETIME toFileTime(qint64 secondsSinceEpoch);

/*! Works with the trust platform as a system store does. */
class ChainClient
{
public:
    explicit ChainClient(vela::TrustPlatform& platform = vela::systemTrustPlatform());
    ~ChainClient();

    void add(const QByteArray& certificate);
    //! Makes the engine again, from the roots as they are now.
    void reset();
    //! Any failure of the platform is fatal for the test program.
    ChainAnswer ask(const ChainQuestion& question);
    ChainAnswer ask(const QByteArray& certificate);
    HCERTCHAINENGINE engine() const { return m_engine; }
    HCERTSTORE extraStore() const { return m_extraStore; }

private:
    Q_DISABLE_COPY(ChainClient)

    vela::TrustPlatform& m_platform;
    HCERTSTORE m_extraStore = nullptr;
    HCERTCHAINENGINE m_engine = nullptr;
};

} // namespace test

#endif
