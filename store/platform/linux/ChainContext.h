// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CHAINCONTEXT_H
#define FERRULE_CHAINCONTEXT_H

#include "store/platform/CryptoApi.h"
#include "store/validation/CertificatePath.h"

namespace vela {

/*!
    A judged path in the form in which CryptoAPI hands it out: one simple chain, the end certificate
    first. Not filled in are revocation, usages, certificate fields and stores.
*/
class ChainContext : public CERT_CHAIN_CONTEXT
{
public:
    explicit ChainContext(const JudgedPath& judged);

private:
    Q_DISABLE_COPY(ChainContext)

    CERT_SIMPLE_CHAIN m_chain = {};
    CERT_SIMPLE_CHAIN* m_chains[1] = {&m_chain};
    std::vector<CERT_CONTEXT> m_certificates;
    std::vector<CERT_CHAIN_ELEMENT> m_elements;
    std::vector<CERT_CHAIN_ELEMENT*> m_elementPointers;
    const CertificatePath m_path;
};

} // namespace vela

#endif
