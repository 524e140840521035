// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CERTIFICATEROWS_H
#define FERRULE_EXAMPLES_CERTIFICATEROWS_H

#include <Ferrule/CertVerify.h>

#include <QtCore/QStringList>

namespace vela {
class SslCertificate;
}

//! Returns the line of a report that shows \a text, made printable, after \a label.
QString reportRow(const char* label, const QString& text);

/*!
    Describes \a certificate: names, serial number, fingerprints, validity. Each attribute of a name
    has a row of its own, so that no value can pass for two attributes.
*/
QStringList certificateRows(const vela::SslCertificate& certificate);

//! Returns the name of \a verdict: "OK", "self-signed", ...
QString verdictName(vela::CertVerify verdict);

#endif
