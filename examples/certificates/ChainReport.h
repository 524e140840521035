// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CHAINREPORT_H
#define FERRULE_EXAMPLES_CHAINREPORT_H

#include "certificates/CertificateFile.h"

#include <Ferrule/GenericCertStore.h>

#include <QtCore/QString>

/*!
    Describes the chain of \a file, which must not be empty, in lines for a human reader: each
    certificate, with what \a store has on it, and the judgement on the whole. The store is left as
    it is.
*/
QString chainReport(vela::GenericCertStore& store, const CertificateFile& file);

#endif
