// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_RESOURCETREE_H
#define FERRULE_RESOURCETREE_H

#include "resources/ResourceTables.h"

#include <QtCore/qglobal.h>

namespace vela {

/*!
    Keeps a tree registered with Qt's resource system while it lives. Nothing may read a file of the
    tree any longer when it goes; a `QTranslator` that loaded one does so until it is destroyed.
*/
class ResourceTree
{
public:
    explicit ResourceTree(const ResourceTables& tables);
    ~ResourceTree();

private:
    Q_DISABLE_COPY(ResourceTree)

    const ResourceTables& m_tables;
};

} // namespace vela

#endif
