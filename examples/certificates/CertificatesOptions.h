// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_CERTIFICATESOPTIONS_H
#define FERRULE_EXAMPLES_CERTIFICATESOPTIONS_H

#include <Ferrule/CertTrust.h>

#include <QtCore/QStringList>

//! The statuses with which ferrule-certificates ends; --help explains them to users.
enum ExitStatus {
    ExitOk = 0,
    ExitUsage = 1,
    ExitNothingRead = 2,
    ExitDamaged = 3,
    ExitBundle = 4,
    ExitNotWritten = 5,
    ExitStandardOutput = 6
};

//! What the command line asks for.
struct CertificatesOptions
{
    QStringList files; //!< "-" is standard input.
    QString bundle;
    vela::CertAccept accept = vela::AcceptAlways;
    QString pemOutput; //!< Empty for none, as is derOutput.
    QString derOutput;

    /*!
        Reads \a arguments, the program's name first. Returns false when the program is to end with
        \a status: after an error, which it prints, and after --help and --version.
    */
    bool parse(const QStringList& arguments, int& status);
};

#endif
