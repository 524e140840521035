// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATECORPORA_H
#define FERRULE_CERTIFICATECORPORA_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace test {

/*! What the manifest says of one DER file. */
struct ManifestLine
{
    QByteArray corpus;
    QByteArray file;
    bool isParsed = false;
    QByteArray sha1;
    QByteArray serial;
};

/*! A file on which the reference engine and newer ones, the `openssl` command's too, disagree. */
struct Leniency
{
    const char* file;
    const char* reason;
};

/*! Files that the reference engine parses although the manifest's engine rejects them. */
const QList<Leniency>& referenceEngineLeniencies();

/*! Returns why this engine parses \a file nevertheless, or null: it does as the manifest says. */
const char* leniencyFor(const QByteArray& file);

/*! True when the engine at hand is the reference engine. */
bool isReferenceEngine();

QList<ManifestLine> readManifest();

QString corpusFileName(const QByteArray& corpus, const QByteArray& file);

} // namespace test

#endif
