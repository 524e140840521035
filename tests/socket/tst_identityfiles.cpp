// SPDX-License-Identifier: BSD-3-Clause
// Which certificate and key the shared context has, and when their files are read anew.
#include "tests/common/TestCertificates.h"
#include "socket/FileVersion.h"
#include "socket/IdentityFiles.h"
#include "socket/SslContext.h"
#include "support/EngineFileName.h"

#include <QtTest/QtTest>

using vela::FileVersion;
using vela::IdentityFiles;

namespace {

constexpr int LONG_AGO = 3600;

void writeFile(const QString& path, const QByteArray& content, int secondsAgo)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) < 0)
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    file.flush();
    if (!file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(-secondsAgo),
                          QFileDevice::FileModificationTime)) {
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
    }
}

const X509* certificateInForce()
{
    return SSL_CTX_get0_certificate(vela::SslContext::get());
}

} // namespace

class IdentityFilesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void unchangedFilesAreReadOnce();
    void filesWrittenJustNowAreReadAgain();
    void changedFilesAreReadAgain_data();
    void changedFilesAreReadAgain();
    void replacedFilesOfEqualSizeAndTimeAreReadAgain();
    void otherFilesAreRead();
    void removedFilesAreErrors();
    void failuresAreNotRemembered();
    void eachStepHasItsError();
    void versionsDiffer_data();
    void versionsDiffer();
    void settledOnceItIsOldEnough_data();
    void settledOnceItIsOldEnough();
    void missingFilesHaveTheVersionOfNoFile();

private:
    IdentityFiles::Errors load() const
    {
        vela::SslContext& context = vela::SslContext::shared();
        return context.identity().load(context.lock(), vela::engineFileName(m_certificate),
                                       vela::engineFileName(m_key));
    }
    bool loads() const
    {
        const IdentityFiles::Errors errors = load();
        return errors.certificate.isNull() && errors.key.isNull() && errors.match.isNull();
    }
    void writeIdentity(const test::Identity& identity, int secondsAgo) const
    {
        writeFile(m_certificate, identity.certificatePem(), secondsAgo);
        writeFile(m_key, identity.keyPem(), secondsAgo);
    }

    std::unique_ptr<test::PemDirectory> m_directory;
    QString m_certificate;
    QString m_key;
    test::Identity m_identity;
    test::Identity m_other;
};

void IdentityFilesTest::init()
{
    m_directory = std::make_unique<test::PemDirectory>();
    m_certificate = m_directory->path() + QStringLiteral("/certificate.pem");
    m_key = m_directory->path() + QStringLiteral("/key.pem");
    m_identity = test::makeIdentity(test::CertificateSpec());
    m_other = test::makeIdentity(test::CertificateSpec());
    writeIdentity(m_identity, LONG_AGO);
}

void IdentityFilesTest::unchangedFilesAreReadOnce()
{
    QVERIFY(loads());
    const X509* certificate = certificateInForce();
    QVERIFY(certificate);
    QVERIFY(X509_cmp(certificate, m_identity.x509()) == 0);
    QVERIFY(loads());
    QCOMPARE(certificateInForce(), certificate);
}

void IdentityFilesTest::filesWrittenJustNowAreReadAgain()
{
    writeIdentity(m_identity, 0);
    QVERIFY(loads());
    // Whoever writes another identity of the same length within the same tick is noticed, too.
    const QDateTime written = QFileInfo(m_certificate).lastModified();
    writeIdentity(m_other, 0);
    for (const QString& path : {m_certificate, m_key}) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(written, QFileDevice::FileModificationTime));
    }
    QVERIFY(loads());
    QVERIFY(X509_cmp(certificateInForce(), m_other.x509()) == 0);
}

void IdentityFilesTest::changedFilesAreReadAgain_data()
{
    QTest::addColumn<int>("secondsAgo");
    QTest::newRow("now") << 0;
    QTest::newRow("a while ago") << LONG_AGO / 2;
    QTest::newRow("an older file put in its place") << LONG_AGO * 2;
}

void IdentityFilesTest::changedFilesAreReadAgain()
{
    QFETCH(int, secondsAgo);
    QVERIFY(loads());
    writeIdentity(m_other, secondsAgo);
    QVERIFY(loads());
    QVERIFY(X509_cmp(certificateInForce(), m_other.x509()) == 0);
}

// As when a tree is unpacked whose times were made equal, or a certificate is renewed by rename.
void IdentityFilesTest::replacedFilesOfEqualSizeAndTimeAreReadAgain()
{
    constexpr int LENGTH = 2000;
    const QDateTime time = QDateTime::fromSecsSinceEpoch(1'000'000'000);
    const auto replace = [&](const QString& path, const QByteArray& content) {
        const QString fresh = path + QStringLiteral(".new");
        writeFile(fresh, content.leftJustified(LENGTH, '\n'), 0);
        QFile file(fresh);
        return file.open(QIODevice::ReadWrite)
               && file.setFileTime(time, QFileDevice::FileModificationTime)
               && (file.close(), QFile::remove(path), file.rename(path));
    };
    QVERIFY(replace(m_certificate, m_identity.certificatePem()));
    QVERIFY(replace(m_key, m_identity.keyPem()));
    QVERIFY(loads());
    QVERIFY(replace(m_certificate, m_other.certificatePem()));
    QVERIFY(replace(m_key, m_other.keyPem()));
    QVERIFY(loads());
    QVERIFY(X509_cmp(certificateInForce(), m_other.x509()) == 0);
}

void IdentityFilesTest::otherFilesAreRead()
{
    QVERIFY(loads());
    const QString first = m_certificate;
    const QString firstKey = m_key;
    m_certificate += QStringLiteral(".other");
    m_key += QStringLiteral(".other");
    writeIdentity(m_other, LONG_AGO);
    QVERIFY(loads());
    QVERIFY(X509_cmp(certificateInForce(), m_other.x509()) == 0);
    m_certificate = first;
    m_key = firstKey;
    QVERIFY(loads());
    QVERIFY(X509_cmp(certificateInForce(), m_identity.x509()) == 0);
}

void IdentityFilesTest::removedFilesAreErrors()
{
    QVERIFY(loads());
    QVERIFY(QFile::remove(m_key));
    const IdentityFiles::Errors errors = load();
    QVERIFY(errors.certificate.isNull());
    QVERIFY(!errors.key.isNull());
}

void IdentityFilesTest::failuresAreNotRemembered()
{
    QVERIFY(loads());
    writeFile(m_key, "no key", LONG_AGO);
    QVERIFY(!load().key.isNull());
    QVERIFY(!load().key.isNull());
    writeFile(m_key, m_identity.keyPem(), LONG_AGO);
    QVERIFY(loads());
}

void IdentityFilesTest::eachStepHasItsError()
{
    QVERIFY(loads());
    writeFile(m_certificate, "no certificate", LONG_AGO);
    const IdentityFiles::Errors first = load();
    QVERIFY(!first.certificate.isNull());
    QVERIFY(first.key.isNull());

    writeFile(m_certificate, m_other.certificatePem(), LONG_AGO);
    const IdentityFiles::Errors second = load();
    QVERIFY(second.certificate.isNull());
    QVERIFY(!second.match.isNull() || !second.key.isNull());
}

void IdentityFilesTest::versionsDiffer_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("secondsAgo");
    QTest::addColumn<bool>("same");
    QTest::newRow("left alone") << QByteArray() << LONG_AGO << true;
    QTest::newRow("other content of the same length") << QByteArray("xyz") << LONG_AGO << false;
    QTest::newRow("longer") << QByteArray("abcd") << LONG_AGO << false;
    QTest::newRow("later") << QByteArray("abc") << LONG_AGO - 2 << false;
    QTest::newRow("earlier") << QByteArray("abc") << LONG_AGO + 2 << false;
}

void IdentityFilesTest::versionsDiffer()
{
    QFETCH(QByteArray, content);
    QFETCH(int, secondsAgo);
    QFETCH(bool, same);
    const QByteArray name = vela::engineFileName(m_certificate);
    const QDateTime time = QDateTime::fromSecsSinceEpoch(1'000'000'000);
    writeFile(m_certificate, "abc", 0);
    const auto setTime = [&](const QDateTime& modified) {
        QFile file(m_certificate);
        return file.open(QIODevice::ReadWrite)
               && file.setFileTime(modified, QFileDevice::FileModificationTime);
    };
    QVERIFY(setTime(time));
    const FileVersion before = FileVersion::of(name);
    if (!content.isNull()) {
        // So much later that the clock of the file system has gone on.
        const QByteArray probe = QFile::encodeName(m_directory->path() + QStringLiteral("/probe"));
        const auto changedAfter = [&] {
            writeFile(QFile::decodeName(probe), "probe", 0);
            return vela::FileStamp::of(vela::engineFilePath(probe)).changed;
        };
        const std::int64_t written = changedAfter();
        QTRY_VERIFY(changedAfter() != written);
        writeFile(m_certificate, content, 0);
        QVERIFY(setTime(time.addSecs(LONG_AGO - secondsAgo)));
    }
    QCOMPARE(FileVersion::of(name) == before, same);
    QCOMPARE(FileVersion::of(name) != before, !same);
    QVERIFY(FileVersion::of(name) != FileVersion());
}

void IdentityFilesTest::settledOnceItIsOldEnough_data()
{
    QTest::addColumn<int>("milliseconds");
    QTest::addColumn<bool>("settled");
    QTest::newRow("written later than now") << -60000 << false;
    QTest::newRow("written now") << 0 << false;
    QTest::newRow("within the coarsest step of time") << 2000 << false;
    QTest::newRow("after it") << 3500 << true;
}

void IdentityFilesTest::settledOnceItIsOldEnough()
{
    QFETCH(int, milliseconds);
    QFETCH(bool, settled);
    const auto written = std::filesystem::last_write_time(m_certificate.toStdU16String());
    const FileVersion version = FileVersion::of(vela::engineFileName(m_certificate));
    QCOMPARE(version.isSettled(written + std::chrono::milliseconds(milliseconds)), settled);
}

// A file that comes to be is a difference that is always seen.
void IdentityFilesTest::missingFilesHaveTheVersionOfNoFile()
{
    const QByteArray name = vela::engineFileName(m_certificate);
    writeFile(m_certificate, QByteArray(), 0);
    QVERIFY(FileVersion::of(name) != FileVersion());
    QVERIFY(QFile::remove(m_certificate));
    QVERIFY(FileVersion::of(name) == FileVersion());
    QVERIFY(FileVersion::of(name).isSettled());
}

QTEST_GUILESS_MAIN(IdentityFilesTest)
#include "tst_identityfiles.moc"
