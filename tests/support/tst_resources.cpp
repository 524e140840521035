// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/SslSocket.h>

#include <QtCore/QDir>
#include <QtCore/QResource>
#include <QtTest/QtTest>

/*
    The files that the library carries. The directory FERRULE_RESOURCES holds what they were made
    of.
*/
class ResourcesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void treeHoldsItsFilesAlone_data();
    void treeHoldsItsFilesAlone();
    void fileIsTheCheckedInOne_data();
    void fileIsTheCheckedInOne();
    void fileIsStoredUncompressed_data();
    void fileIsStoredUncompressed();
    void fileHasNoTimeStamp_data();
    void fileHasNoTimeStamp();
    void pathIsCaseSensitive_data();
    void pathIsCaseSensitive();

private:
    void addFileRows();
};

void ResourcesTest::initTestCase()
{
    // A linker may drop a library of which a program uses nothing.
    QVERIFY(!vela::SslSocket::printStatistics().isEmpty());
}

void ResourcesTest::addFileRows()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("root bundle") << QStringLiteral("/Certificates/RootCerts.pem");
    QTest::newRow("French catalogue") << QStringLiteral("/Translations/Ferrule_fr.qm");
    QTest::newRow("German catalogue") << QStringLiteral("/Translations/Ferrule_de.qm");
}

void ResourcesTest::treeHoldsItsFilesAlone_data()
{
    QTest::addColumn<QString>("tree");
    QTest::addColumn<QStringList>("files");
    QTest::newRow("certificates") << QStringLiteral(":/Certificates")
                                  << QStringList{QStringLiteral("RootCerts.pem")};
    QTest::newRow("translations") << QStringLiteral(":/Translations")
                                  << QStringList{QStringLiteral("Ferrule_de.qm"),
                                                 QStringLiteral("Ferrule_fr.qm")};
}

void ResourcesTest::treeHoldsItsFilesAlone()
{
    QFETCH(QString, tree);
    QFETCH(QStringList, files);
    QCOMPARE(QDir(tree).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name), files);
}

void ResourcesTest::fileIsTheCheckedInOne_data()
{
    addFileRows();
}

void ResourcesTest::fileIsTheCheckedInOne()
{
    QFETCH(QString, path);
    QFile carried(QLatin1Char(':') + path);
    QVERIFY(carried.open(QIODevice::ReadOnly));
    QFile checkedIn(QStringLiteral(FERRULE_RESOURCES)
                    + path.mid(path.lastIndexOf(QLatin1Char('/'))));
    QVERIFY(checkedIn.open(QIODevice::ReadOnly));
    QVERIFY(checkedIn.size() > 0);
    QCOMPARE(carried.size(), checkedIn.size());
    QVERIFY(carried.readAll() == checkedIn.readAll());
}

void ResourcesTest::fileIsStoredUncompressed_data()
{
    addFileRows();
}

void ResourcesTest::fileIsStoredUncompressed()
{
    QFETCH(QString, path);
    const QResource resource(path);
    QVERIFY(resource.isValid());
    QCOMPARE(resource.compressionAlgorithm(), QResource::NoCompression);
    QFile file(QLatin1Char(':') + path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const auto* stored = reinterpret_cast<const char*>(resource.data());
    QVERIFY(file.readAll() == QByteArray::fromRawData(stored, int(resource.size())));
}

void ResourcesTest::fileHasNoTimeStamp_data()
{
    addFileRows();
}

// From version 2 on the format has one, and two builds of the same sources would differ.
void ResourcesTest::fileHasNoTimeStamp()
{
    QFETCH(QString, path);
    QVERIFY(QResource(path).isValid());
    QVERIFY(!QResource(path).lastModified().isValid());
}

void ResourcesTest::pathIsCaseSensitive_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("tree of certificates") << QStringLiteral(":/certificates/RootCerts.pem");
    QTest::newRow("root bundle") << QStringLiteral(":/Certificates/rootcerts.pem");
    QTest::newRow("suffix") << QStringLiteral(":/Certificates/RootCerts.PEM");
    QTest::newRow("tree of translations") << QStringLiteral(":/translations/Ferrule_fr.qm");
    QTest::newRow("French catalogue") << QStringLiteral(":/Translations/ferrule_fr.qm");
    QTest::newRow("German catalogue") << QStringLiteral(":/Translations/Ferrule_DE.qm");
}

void ResourcesTest::pathIsCaseSensitive()
{
    QFETCH(QString, path);
    QVERIFY(!QFile::exists(path));
}

QTEST_GUILESS_MAIN(ResourcesTest)
#include "tst_resources.moc"
