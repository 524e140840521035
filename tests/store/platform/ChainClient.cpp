// SPDX-License-Identifier: BSD-3-Clause
#include "ChainClient.h"

#include <QtCore/QPair>
#include <QtCore/QVector>

namespace test {

namespace {

using BitNames = QVector<QPair<DWORD, const char*>>;

const BitNames& errorBits()
{
    static const BitNames bits = {
        {CERT_TRUST_IS_NOT_TIME_VALID, "NOT_TIME_VALID"},
        {CERT_TRUST_IS_NOT_SIGNATURE_VALID, "NOT_SIGNATURE_VALID"},
        {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "NOT_VALID_FOR_USAGE"},
        {CERT_TRUST_IS_UNTRUSTED_ROOT, "UNTRUSTED_ROOT"},
        {CERT_TRUST_IS_CYCLIC, "CYCLIC"},
        {CERT_TRUST_INVALID_EXTENSION, "INVALID_EXTENSION"},
        {CERT_TRUST_INVALID_POLICY_CONSTRAINTS, "INVALID_POLICY_CONSTRAINTS"},
        {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "INVALID_BASIC_CONSTRAINTS"},
        {CERT_TRUST_INVALID_NAME_CONSTRAINTS, "INVALID_NAME_CONSTRAINTS"},
        {CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT, "HAS_NOT_SUPPORTED_NAME_CONSTRAINT"},
        {CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT, "HAS_NOT_PERMITTED_NAME_CONSTRAINT"},
        {CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT, "HAS_EXCLUDED_NAME_CONSTRAINT"},
        {CERT_TRUST_IS_PARTIAL_CHAIN, "PARTIAL_CHAIN"},
        {CERT_TRUST_HAS_WEAK_SIGNATURE, "HAS_WEAK_SIGNATURE"},
        {CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT, "HAS_NOT_SUPPORTED_CRITICAL_EXT"},
    };
    return bits;
}

const BitNames& infoBits()
{
    static const BitNames bits = {
        {CERT_TRUST_HAS_EXACT_MATCH_ISSUER, "EXACT_MATCH_ISSUER"},
        {CERT_TRUST_HAS_KEY_MATCH_ISSUER, "KEY_MATCH_ISSUER"},
        {CERT_TRUST_HAS_NAME_MATCH_ISSUER, "NAME_MATCH_ISSUER"},
        {CERT_TRUST_IS_SELF_SIGNED, "SELF_SIGNED"},
    };
    return bits;
}

QStringList namesOf(DWORD status, const BitNames& bits)
{
    QStringList names;
    for (const auto& bit : bits) {
        if (status & bit.first)
            names.append(QString::fromLatin1(bit.second));
        status &= ~bit.first;
    }
    if (status != 0)
        names.append(QString::number(status, 16));
    names.sort();
    return names;
}

void require(bool success, const char* what)
{
    if (!success)
        qFatal("ChainClient: %s failed", what);
}

PCCERT_CONTEXT makeContext(vela::TrustPlatform& platform, const QByteArray& der)
{
    const PCCERT_CONTEXT context = platform.createCertificateContext(
        X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, reinterpret_cast<const BYTE*>(der.constData()),
        DWORD(der.size()));
    require(context != nullptr, "createCertificateContext");
    return context;
}

} // namespace

QStringList errorNames(DWORD errors)
{
    return namesOf(errors, errorBits());
}

QStringList infoNames(DWORD info)
{
    return namesOf(info, infoBits());
}

FILETIME toFileTime(qint64 secondsSinceEpoch)
{
    const auto ticks = quint64(secondsSinceEpoch + 11644473600) * 10000000;
    return {DWORD(ticks), DWORD(ticks >> 32)};
}

ChainAnswer answerOf(PCCERT_CHAIN_CONTEXT context)
{
    ChainAnswer answer;
    answer.errors = context->TrustStatus.dwErrorStatus;
    answer.info = context->TrustStatus.dwInfoStatus;
    require(context->cbSize == sizeof *context && context->cChain == 1, "one simple chain");
    const CERT_SIMPLE_CHAIN& chain = *context->rgpChain[0];
    require(chain.TrustStatus.dwErrorStatus == answer.errors
                && chain.TrustStatus.dwInfoStatus == answer.info,
            "the same status for the simple chain");
    for (DWORD i = 0; i < chain.cElement; ++i) {
        const CERT_CHAIN_ELEMENT& element = *chain.rgpElement[i];
        answer.elementErrors.append(element.TrustStatus.dwErrorStatus);
        answer.elementInfos.append(element.TrustStatus.dwInfoStatus);
        answer.certificates.append(
            QByteArray(reinterpret_cast<const char*>(element.pCertContext->pbCertEncoded),
                       int(element.pCertContext->cbCertEncoded)));
    }
    return answer;
}

ChainClient::ChainClient(vela::TrustPlatform& platform)
    : m_platform(platform)
    , m_extraStore(platform.openStore(CERT_STORE_PROV_MEMORY, X509_ASN_ENCODING, 0,
                                      CERT_STORE_CREATE_NEW_FLAG, nullptr))
{
    require(m_extraStore != nullptr, "openStore");
    reset();
}

ChainClient::~ChainClient()
{
    m_platform.freeChainEngine(m_engine);
    m_platform.closeStore(m_extraStore, CERT_CLOSE_STORE_FORCE_FLAG);
}

void ChainClient::add(const QByteArray& certificate)
{
    const PCCERT_CONTEXT context = makeContext(m_platform, certificate);
    require(m_platform.addCertificateContextToStore(m_extraStore, context,
                                                    CERT_STORE_ADD_REPLACE_EXISTING, nullptr),
            "addCertificateContextToStore");
    m_platform.freeCertificateContext(context);
}

void ChainClient::reset()
{
    if (m_engine)
        m_platform.freeChainEngine(m_engine);
    CERT_CHAIN_ENGINE_CONFIG config = {};
    config.cbSize = sizeof config;
    config.cAdditionalStore = 1;
    config.rghAdditionalStore = &m_extraStore;
    require(m_platform.createChainEngine(&config, &m_engine), "createChainEngine");
}

ChainAnswer ChainClient::ask(const ChainQuestion& question)
{
    const PCCERT_CONTEXT context = makeContext(m_platform, question.certificate);
    QVector<char*> usages;
    for (const QByteArray& usage : question.usages)
        usages.append(const_cast<char*>(usage.constData()));
    CERT_CHAIN_PARA para = {};
    para.cbSize = sizeof para;
    para.RequestedUsage.dwType = question.usageMatch;
    para.RequestedUsage.Usage = {DWORD(usages.size()), usages.data()};
    FILETIME time = toFileTime(question.time.value_or(0));
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    require(m_platform.getCertificateChain(m_engine, context, question.time ? &time : nullptr,
                                           question.additionalStore, &para, 0, nullptr, &chain),
            "getCertificateChain");
    m_platform.freeCertificateContext(context);
    const ChainAnswer answer = answerOf(chain);
    m_platform.freeCertificateChain(chain);
    return answer;
}

ChainAnswer ChainClient::ask(const QByteArray& certificate)
{
    ChainQuestion question;
    question.certificate = certificate;
    return ask(question);
}

} // namespace test
