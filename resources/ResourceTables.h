// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_RESOURCETABLES_H
#define FERRULE_RESOURCETABLES_H

namespace vela {

/*!
    The three tables in which Qt's resource compiler lays out a tree, in the format that it calls
    version 1.
*/
struct ResourceTables
{
    const unsigned char* tree;
    const unsigned char* names;
    const unsigned char* data;
};

//! ":/Certificates/RootCerts.pem".
extern const ResourceTables CERTIFICATES_RESOURCES;

//! ":/Translations/Ferrule_de.qm" and ":/Translations/Ferrule_fr.qm".
extern const ResourceTables TRANSLATIONS_RESOURCES;

} // namespace vela

#endif
