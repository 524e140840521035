// SPDX-License-Identifier: BSD-3-Clause
#include "ScriptedChain.h"

namespace test {

struct ScriptedChain::Chain
{
    explicit Chain(ChainReport::SimpleChain& report)
        : contexts(report.elements.size())
        , elements(report.elements.size())
        , pointers(report.elements.size())
    {
        for (std::size_t i = 0; i < elements.size(); ++i) {
            ChainReport::Element& element = report.elements[i];
            contexts[i].pbCertEncoded = reinterpret_cast<BYTE*>(element.der.data());
            contexts[i].cbCertEncoded = static_cast<DWORD>(element.der.size());
            elements[i].pCertContext = &contexts[i];
            elements[i].TrustStatus.dwInfoStatus = element.info;
            pointers[i] = &elements[i];
        }
        chain.TrustStatus.dwInfoStatus = report.info;
        chain.cElement = static_cast<DWORD>(pointers.size());
        chain.rgpElement = pointers.data();
    }

    CERT_SIMPLE_CHAIN chain = {};
    std::vector<CERT_CONTEXT> contexts;
    std::vector<CERT_CHAIN_ELEMENT> elements;
    std::vector<CERT_CHAIN_ELEMENT*> pointers;
};

ScriptedChain::ScriptedChain(const ChainReport& report)
    : m_report(report)
{
    for (ChainReport::SimpleChain& chain : m_report.chains) {
        m_chains.push_back(std::make_unique<Chain>(chain));
        m_chainPointers.push_back(&m_chains.back()->chain);
    }
    m_context.TrustStatus.dwErrorStatus = m_report.error;
    m_context.TrustStatus.dwInfoStatus = m_report.info;
    m_context.cChain = static_cast<DWORD>(m_chainPointers.size());
    m_context.rgpChain = m_chainPointers.data();
}

ScriptedChain::~ScriptedChain() = default;

PCCERT_CHAIN_CONTEXT ScriptedChain::get() const
{
    return &m_context;
}

} // namespace test
