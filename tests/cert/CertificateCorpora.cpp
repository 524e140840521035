// SPDX-License-Identifier: BSD-3-Clause
#include "tests/cert/CertificateCorpora.h"

#include <openssl/crypto.h>

#include <QtCore/QFile>

namespace test {

const QList<Leniency>& referenceEngineLeniencies()
{
    static const QList<Leniency> leniencies{
        {"3082fccd053176deff60", "an issuer value of a type that is not for names"},
        {"adae505f8265dd98c33e", "an issuer value of a type that is not for names"},
        {"c300419ab14525d6ff5a", "an issuer value of a type that is not for names"},
        {"cca1f2d61c71e5b4c5ea", "a subject value of a type that is not for names"},
        {"serial_not_minimal.der", "a serial number with superfluous leading octets"},
    };
    return leniencies;
}

const char* leniencyFor(const QByteArray& file)
{
    if (!isReferenceEngine())
        return nullptr;
    for (const Leniency& leniency : referenceEngineLeniencies()) {
        if (file == leniency.file)
            return leniency.reason;
    }
    return nullptr;
}

bool isReferenceEngine()
{
    return SSLeay() < 0x10100000L;
}

QList<ManifestLine> readManifest()
{
    QFile file(QStringLiteral(CORPORA_MANIFEST));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", CORPORA_MANIFEST, qPrintable(file.errorString()));
    file.readLine();
    QList<ManifestLine> lines;
    while (!file.atEnd()) {
        const QList<QByteArray> fields = file.readLine().replace('\n', "").split('\t');
        lines.append({fields.value(0), fields.value(1), fields.value(4) == "parse", fields.value(7),
                      fields.value(8)});
    }
    return lines;
}

QString corpusFileName(const QByteArray& corpus, const QByteArray& file)
{
    return QStringLiteral(CORPORA_DIRECTORY) + QLatin1Char('/') + QString::fromLatin1(corpus)
           + QLatin1Char('/') + QString::fromLatin1(file);
}

} // namespace test
