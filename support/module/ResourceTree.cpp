// SPDX-License-Identifier: BSD-3-Clause
#include "support/module/ResourceTree.h"

QT_BEGIN_NAMESPACE
// Qt exports these for the code that its resource compiler writes; no header declares them.
bool qRegisterResourceData(int, const unsigned char*, const unsigned char*, const unsigned char*);
bool qUnregisterResourceData(int, const unsigned char*, const unsigned char*, const unsigned char*);
QT_END_NAMESPACE

namespace vela {

namespace {

constexpr int FORMAT_VERSION = 1;

} // namespace

ResourceTree::ResourceTree(const ResourceTables& tables)
    : m_tables(tables)
{
    qRegisterResourceData(FORMAT_VERSION, tables.tree, tables.names, tables.data);
}

ResourceTree::~ResourceTree()
{
    qUnregisterResourceData(FORMAT_VERSION, m_tables.tree, m_tables.names, m_tables.data);
}

} // namespace vela
