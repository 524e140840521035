// SPDX-License-Identifier: BSD-3-Clause
#include <Ferrule/CertificateStore.h>
#include <Ferrule/SslCertificate.h>
#include <Ferrule/SslSocket.h>

#include <QtTest/QtTest>

class ModuleStartupTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaTypesAreRegisteredByName_data();
    void metaTypesAreRegisteredByName();
    void metaTypeIdsStandInOrder();
    void contextExistsBeforeAnySocket();
    void attributeKeysExist();
    void verdictTravelsThroughAQueuedConnection();
};

void ModuleStartupTest::metaTypesAreRegisteredByName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("size");
    QTest::newRow("certificate pointer")
        << QByteArray("SslCertificatePtr") << int(sizeof(vela::SslCertificatePtr));
    QTest::newRow("chain") << QByteArray("vela::SslCertificateChain")
                           << int(sizeof(vela::SslCertificateChain));
    QTest::newRow("verdict") << QByteArray("vela::CertVerify") << int(sizeof(vela::CertVerify));
    QTest::newRow("acceptance") << QByteArray("vela::CertAccept") << int(sizeof(vela::CertAccept));
    QTest::newRow("host name") << QByteArray("vela::CertHostName")
                               << int(sizeof(vela::CertHostName));
    QTest::newRow("trust record") << QByteArray("vela::CertTrust") << int(sizeof(vela::CertTrust));
    QTest::newRow("open mode") << QByteArray("OpenMode") << int(sizeof(QIODevice::OpenMode));
}

void ModuleStartupTest::metaTypesAreRegisteredByName()
{
    QFETCH(QByteArray, name);
    QFETCH(int, size);
    const int id = QMetaType::type(name.constData());
    QVERIFY(id != QMetaType::UnknownType);
    QCOMPARE(QMetaType::sizeOf(id), size);
}

void ModuleStartupTest::metaTypeIdsStandInOrder()
{
    const QList<QByteArray> names = {"SslCertificatePtr", "vela::SslCertificateChain",
                                     "vela::CertVerify", "vela::CertAccept", "vela::CertHostName"};
    QList<QByteArray> registered;
    for (int id : vela::SslCertificate::g_metaTypes)
        registered.append(QMetaType::typeName(id));
    QCOMPARE(registered, names);
    QCOMPARE(vela::CertificateStore::g_metaTypes[0], QMetaType::type("vela::CertTrust"));
}

void ModuleStartupTest::contextExistsBeforeAnySocket()
{
    QVERIFY(!vela::SslSocket::printStatistics().isEmpty());
}

void ModuleStartupTest::attributeKeysExist()
{
    using vela::SslCertificate;
    QCOMPARE(SslCertificate::ATTR_COUNTRY, QStringLiteral("C"));
    QCOMPARE(SslCertificate::ATTR_ORGANISATION, QStringLiteral("O"));
    QCOMPARE(SslCertificate::ATTR_ORGANISATION_UNIT, QStringLiteral("OU"));
    QCOMPARE(SslCertificate::ATTR_LOCALITY, QStringLiteral("L"));
    QCOMPARE(SslCertificate::ATTR_STATE, QStringLiteral("ST"));
    QCOMPARE(SslCertificate::ATTR_COMMON_NAME, QStringLiteral("CN"));
    QCOMPARE(SslCertificate::ATTR_EMAIL, QStringLiteral("EMail"));
}

void ModuleStartupTest::verdictTravelsThroughAQueuedConnection()
{
    vela::SslSocket socket(vela::SslSocket::Client);
    vela::CertVerify received = vela::VerifyUnknown;
    QString text;
    QObject receiver;
    connect(
        &socket, &vela::SslSocket::connectionVerificationDone, &receiver,
        [&](vela::CertVerify result, bool, const QString& description) {
            received = result;
            text = description;
        },
        Qt::QueuedConnection);
    Q_EMIT socket.connectionVerificationDone(vela::VerifyExpired, true, QStringLiteral("why"));
    QCOMPARE(received, vela::VerifyUnknown);
    QCoreApplication::sendPostedEvents(&receiver);
    QCOMPARE(received, vela::VerifyExpired);
    QCOMPARE(text, QStringLiteral("why"));
}

QTEST_GUILESS_MAIN(ModuleStartupTest)
#include "tst_modulestartup.moc"
