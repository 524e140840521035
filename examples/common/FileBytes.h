// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_FILEBYTES_H
#define FERRULE_EXAMPLES_FILEBYTES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

//! Reads all of \a fileName, "-" for standard input. Returns an error text, null for success.
QString readBytes(const QString& fileName, QByteArray& bytes);

#endif
