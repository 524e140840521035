// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_SCRIPTEDCHAIN_H
#define FERRULE_TESTS_SCRIPTEDCHAIN_H

#include "store/platform/CryptoApi.h"

#include <QtCore/QByteArray>

#include <memory>
#include <vector>

namespace test {

/*! What a system says about a chain; the defaults say nothing against it. */
struct ChainReport
{
    struct Element
    {
        DWORD info = 0;
        QByteArray der;
    };

    struct SimpleChain
    {
        DWORD info = 0;
        std::vector<Element> elements;
    };

    DWORD error = 0;
    DWORD info = 0;
    std::vector<SimpleChain> chains;
};

/*! A report in the form in which CryptoAPI gives it. */
class ScriptedChain
{
public:
    explicit ScriptedChain(const ChainReport& report);
    ~ScriptedChain();

    PCCERT_CHAIN_CONTEXT get() const;

private:
    struct Chain;

    ChainReport m_report;
    CERT_CHAIN_CONTEXT m_context = {};
    std::vector<std::unique_ptr<Chain>> m_chains;
    std::vector<CERT_SIMPLE_CHAIN*> m_chainPointers;
};

} // namespace test

#endif
