// SPDX-License-Identifier: BSD-3-Clause

#include "Program.h"

#include "common/About.h"

#include <QtTest/QtTest>

#include <openssl/crypto.h>

using namespace test;

namespace {

//! Returns what the row after \a label says.
QByteArray textOf(const QByteArray& output, const QByteArray& label)
{
    const QList<QByteArray> lines = output.split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(label + ' '))
            return line.mid(label.size()).trimmed();
    }
    return QByteArray();
}

} // namespace

class AboutTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void programsTellWhatTheyRunWith_data();
    void programsTellWhatTheyRunWith();
    void engineIsComparedWithTheOneBuiltFor_data();
    void engineIsComparedWithTheOneBuiltFor();
};

void AboutTest::programsTellWhatTheyRunWith_data()
{
    QTest::addColumn<QString>("program");
    QTest::newRow("certificates") << QStringLiteral(CERTIFICATES_PROGRAM);
    QTest::newRow("client") << QStringLiteral(CLIENT_PROGRAM);
    QTest::newRow("proxy") << QStringLiteral(PROXY_PROGRAM);
    QTest::newRow("server") << QStringLiteral(SERVER_PROGRAM);
}

void AboutTest::programsTellWhatTheyRunWith()
{
    QFETCH(QString, program);
    Program about(program, {QStringLiteral("--about")});
    about.start();
    QCOMPARE(about.finishInput(), 0);
    const QByteArray output = about.output();
    QVERIFY2(output.startsWith(QFileInfo(program).completeBaseName().toLatin1()),
             output.constData());
    QVERIFY2(textOf(output, "Ferrule").contains("Ferrule"), output.constData());
    QCOMPARE(textOf(output, "Qt"), QByteArray(qVersion()) + ", built for " QT_VERSION_STR);
    QVERIFY2(textOf(output, "Qt Core").contains("Qt5Core"), output.constData());
    QVERIFY2(textOf(output, "Qt Network").contains("Qt5Network"), output.constData());
    // The test is linked to the same engine as the library.
    QCOMPARE(textOf(output, "OpenSSL"), QByteArray(SSLeay_version(SSLEAY_VERSION)));
    for (const char* label : {"Ferrule", "Qt Core", "Qt Network", ""})
        QVERIFY2(QFile::exists(QString::fromLocal8Bit(textOf(output, label))), label);
    QVERIFY2(!output.contains("caution"), output.constData());
    QCOMPARE(about.errors(), QByteArray());
}

void AboutTest::engineIsComparedWithTheOneBuiltFor_data()
{
    QTest::addColumn<QString>("builtFor");
    QTest::addColumn<QString>("found");
    QTest::addColumn<QString>("mention");
    const QString old = QStringLiteral("OpenSSL 1.0.2h  3 May 2016");
    QTest::newRow("the same") << QStringLiteral("1.0.2h") << old << QString();
    QTest::newRow("other letter") << QStringLiteral("1.0.2") << old << old;
    QTest::newRow("other series") << QStringLiteral("3.0.15") << old << old;
    QTest::newRow("none") << QStringLiteral("1.0.2h") << QString()
                          << QStringLiteral("no OpenSSL that tells its version");
}

void AboutTest::engineIsComparedWithTheOneBuiltFor()
{
    QFETCH(QString, builtFor);
    QFETCH(QString, found);
    QFETCH(QString, mention);
    const QString caution = engineCaution(builtFor, found);
    QCOMPARE(caution.isEmpty(), mention.isEmpty());
    QVERIFY(caution.contains(mention));
    QVERIFY(caution.isEmpty() || caution.contains(builtFor + QLatin1Char(',')));
}

QTEST_GUILESS_MAIN(AboutTest)
#include "tst_about.moc"
