// SPDX-License-Identifier: BSD-3-Clause

/*
    Where trusted roots come from, how the user adds one, and how often all that is read.
*/

#include "ChainClient.h"
#include "PlannedCertificate.h"
#include "TrustedRoots.h"

#include "store/platform/linux/roots/RootCache.h"
#include "tests/common/OpenSslCommand.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtTest/QtTest>

#include <openssl/x509.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <thread>

using test::leafPlan;
using test::PlannedCertificate;

namespace {

vela::TrustPlatform& platform()
{
    return vela::systemTrustPlatform();
}

bool isTrusted(const QByteArray& der)
{
    test::ChainClient client;
    return client.ask(der).errors == CERT_TRUST_NO_ERROR;
}

bool import(const QByteArray& der, const wchar_t* store = L"ROOT")
{
    return platform().addEncodedCertificateToSystemStore(
        store, reinterpret_cast<const BYTE*>(der.constData()), DWORD(der.size()));
}

QByteArray selfSigned(const QString& name)
{
    return PlannedCertificate(leafPlan(name)).der();
}

mode_t modeOf(const QString& path)
{
    struct stat status = {};
    stat(QFile::encodeName(path).constData(), &status);
    return status.st_mode & 07777;
}

QStringList filesIn(const QString& directory)
{
    return QDir(directory).entryList(QDir::Files | QDir::Hidden | QDir::System);
}

} // namespace

class TrustedRootsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyCertificateOfTheBundleIsTrusted();
    void damagedCertificateInTheBundleCostsOnlyItself();
    void otherThingsInTheBundleArePassedOver();
    void encryptedBlockAsksNobody();
    void fileAndDirectoryOfTheEnvironmentBothCount();
    void severalDirectoriesCount();
    void environmentReplacesTheSystemsRootsAsAWhole_data();
    void environmentReplacesTheSystemsRootsAsAWhole();
    void systemsRootsAreTrustedWithoutEnvironment();
    void variableThatIsEmptyNamesNothing();
    void importedCertificateIsTrusted();
    void importWritesForTheUserAlone();
    void importClosesADirectoryThatOthersCouldWriteTo();
    void importTwiceLeavesOneFile();
    void importReplacesAFileThatIsDamaged();
    void importLeavesNothingButTheFile();
    void importOfGarbageFails_data();
    void importOfGarbageFails();
    void importIntoAnotherStoreFails();
    void importWhereNothingCanBeWrittenFails();
    void filesThatOthersCouldWriteAreNotTrusted_data();
    void filesThatOthersCouldWriteAreNotTrusted();
    void rootsAreReadOncePerChange();
    void defaultEngineKnowsTheRootsOfNow();
    void engineKeepsTheRootsItWasMadeWith();
};

void TrustedRootsTest::everyCertificateOfTheBundleIsTrusted()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    const QByteArray other = selfSigned(QStringLiteral("other"));
    test::TrustedRoots roots;
    QVERIFY(!isTrusted(one));
    roots.setRoots({one, other, one});
    QVERIFY(isTrusted(one));
    QVERIFY(isTrusted(other));
    QCOMPARE(int(vela::rootCache().current()->certificates.size()), 2);
}

void TrustedRootsTest::damagedCertificateInTheBundleCostsOnlyItself()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    const QByteArray other = selfSigned(QStringLiteral("other"));
    test::TrustedRoots roots;
    roots.setBundle(
        test::toPem(one) + "-----BEGIN CERTIFICATE-----\n!!!!\n-----END CERTIFICATE-----\n"
        + test::toPem("no certificate") + test::toPem(other) + "-----BEGIN CERTIFICATE-----\nMIIB");
    QVERIFY(isTrusted(one));
    QVERIFY(isTrusted(other));
}

void TrustedRootsTest::otherThingsInTheBundleArePassedOver()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    roots.setBundle("Comment\n-----BEGIN X509 CRL-----\nMAA=\n-----END X509 CRL-----\n"
                    + test::toPem(one));
    QVERIFY(isTrusted(one));
}

/*
    OpenSSL's own answer to an encrypted block is to ask for the pass phrase: whoever sits at the
    terminal, or else whatever is at the other end of the standard input. Here, that says nothing.
*/
void TrustedRootsTest::encryptedBlockAsksNobody()
{
    constexpr int PATIENCE = 20000;
    const QByteArray one = selfSigned(QStringLiteral("one"));
    QByteArray encrypted = test::toPem(selfSigned(QStringLiteral("other")));
    encrypted.insert(encrypted.indexOf('\n') + 1,
                     "Proc-Type: 4,ENCRYPTED\nDEK-Info: DES-EDE3-CBC,0123456789ABCDEF\n\n");
    test::TrustedRoots roots;
    roots.setBundle(encrypted + test::toPem(one));
    int input[2];
    QCOMPARE(pipe(input), 0);
    const pid_t child = fork();
    if (child == 0) {
        setsid(); // From a process of its own session no terminal can be reached.
        dup2(input[0], STDIN_FILENO);
        _exit(isTrusted(one) ? 0 : 1);
    }
    int status = -1;
    const auto hasEnded = [&] { return waitpid(child, &status, WNOHANG) == child; };
    QElapsedTimer timer;
    timer.start();
    bool isOver = false;
    while (!isOver && timer.elapsed() < PATIENCE) {
        isOver = hasEnded();
        std::this_thread::sleep_for(std::chrono::milliseconds(isOver ? 0 : 5));
    }
    if (!isOver) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    ::close(input[0]);
    ::close(input[1]);
    QVERIFY2(isOver, "somebody was asked");
    QCOMPARE(status, 0);
}

void TrustedRootsTest::fileAndDirectoryOfTheEnvironmentBothCount()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    const QByteArray other = selfSigned(QStringLiteral("other"));
    test::TrustedRoots roots;
    roots.setRoots({one});
    test::writeFile(roots.path(QStringLiteral("certs/other.pem")), test::toPem(other));
    roots.environment().set("SSL_CERT_DIR", QFile::encodeName(roots.path(QStringLiteral("certs"))));
    QVERIFY(isTrusted(one));
    QVERIFY(isTrusted(other));
}

void TrustedRootsTest::severalDirectoriesCount()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    const QByteArray other = selfSigned(QStringLiteral("other"));
    test::TrustedRoots roots;
    test::writeFile(roots.path(QStringLiteral("a/one.pem")), test::toPem(one));
    test::writeFile(roots.path(QStringLiteral("b/other.0")), test::toPem(other));
    roots.environment().set("SSL_CERT_FILE", QByteArray());
    roots.environment().set("SSL_CERT_DIR",
                            QFile::encodeName(roots.path(QStringLiteral("a")) + QLatin1Char(':')
                                              + roots.path(QStringLiteral("b"))));
    QVERIFY(isTrusted(one));
    QVERIFY(isTrusted(other));
}

void TrustedRootsTest::environmentReplacesTheSystemsRootsAsAWhole_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("directory");
    QTest::addColumn<int>("rootsOfTheFile");
    QTest::addColumn<int>("rootsOfTheDirectory");
    const QByteArray unset;
    const QByteArray empty = "";
    QTest::newRow("file alone") << QByteArray("file.pem") << unset << 1 << 0;
    QTest::newRow("directory alone") << unset << QByteArray("certs") << 0 << 1;
    QTest::newRow("both") << QByteArray("file.pem") << QByteArray("certs") << 1 << 1;
    QTest::newRow("file empty") << empty << unset << 0 << 0;
    QTest::newRow("directory empty") << unset << empty << 0 << 0;
    QTest::newRow("both empty") << empty << empty << 0 << 0;
    QTest::newRow("file and empty directory") << QByteArray("file.pem") << empty << 1 << 0;
    QTest::newRow("empty file and directory") << empty << QByteArray("certs") << 0 << 1;
    QTest::newRow("missing file") << QByteArray("missing") << unset << 0 << 0;
    QTest::newRow("missing directory") << unset << QByteArray("missing") << 0 << 0;
    QTest::newRow("both missing") << QByteArray("missing") << QByteArray("missing") << 0 << 0;
    QTest::newRow("missing file and directory")
        << QByteArray("missing") << QByteArray("certs") << 0 << 1;
    QTest::newRow("file and missing directory")
        << QByteArray("file.pem") << QByteArray("missing") << 1 << 0;
}

void TrustedRootsTest::environmentReplacesTheSystemsRootsAsAWhole()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, directory);
    QFETCH(int, rootsOfTheFile);
    QFETCH(int, rootsOfTheDirectory);
    const QByteArray one = selfSigned(QStringLiteral("one"));
    const QByteArray other = selfSigned(QStringLiteral("other"));
    test::TrustedRoots roots;
    test::writeFile(roots.path(QStringLiteral("file.pem")), test::toPem(one));
    test::writeFile(roots.path(QStringLiteral("certs/other.pem")), test::toPem(other));
    const auto pathOf = [&roots](const QByteArray& name) {
        return name.isEmpty() ? name : QFile::encodeName(roots.path(QString::fromLatin1(name)));
    };
    roots.environment().set("SSL_CERT_FILE", pathOf(file));
    roots.environment().set("SSL_CERT_DIR", pathOf(directory));
    QCOMPARE(int(isTrusted(one)), rootsOfTheFile);
    QCOMPARE(int(isTrusted(other)), rootsOfTheDirectory);
    // Nothing of the system's own is left.
    QCOMPARE(int(vela::rootCache().current()->certificates.size()),
             rootsOfTheFile + rootsOfTheDirectory);
}

void TrustedRootsTest::systemsRootsAreTrustedWithoutEnvironment()
{
    test::TrustedRoots roots;
    roots.environment().set("SSL_CERT_FILE", QByteArray());
    if (!QFileInfo::exists(QStringLiteral("/etc/ssl/certs/ca-certificates.crt"))) {
        if (test::isContinuousIntegration())
            QFAIL("ca-certificates is not installed");
        QSKIP("this system keeps its authorities elsewhere");
    }
    QVERIFY(vela::rootCache().current()->certificates.size() > 50);
}

void TrustedRootsTest::variableThatIsEmptyNamesNothing()
{
    test::TrustedRoots roots;
    roots.environment().set("SSL_CERT_FILE", "");
    QCOMPARE(int(vela::rootCache().current()->certificates.size()), 0);
}

void TrustedRootsTest::importedCertificateIsTrusted()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    const QByteArray other = selfSigned(QStringLiteral("other"));
    test::TrustedRoots roots;
    roots.setRoots({other});
    QVERIFY(!isTrusted(one));
    QVERIFY(import(one));
    QVERIFY(isTrusted(one));
    QVERIFY(isTrusted(other));
}

void TrustedRootsTest::importWritesForTheUserAlone()
{
    test::TrustedRoots roots;
    const mode_t mask = umask(0);
    const bool isImported = import(selfSigned(QStringLiteral("one")));
    umask(mask);
    QVERIFY(isImported);
    const QStringList files = filesIn(roots.userDirectory());
    QCOMPARE(files.size(), 1);
    QCOMPARE(modeOf(roots.userDirectory() + QLatin1Char('/') + files.first()), mode_t(0600));
    QCOMPARE(modeOf(roots.userDirectory()), mode_t(0700));
    QCOMPARE(modeOf(roots.path(QStringLiteral("data/ferrule"))), mode_t(0700));
    QCOMPARE(modeOf(roots.path(QStringLiteral("data"))), mode_t(0700));
}

void TrustedRootsTest::importClosesADirectoryThatOthersCouldWriteTo()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    QDir().mkpath(roots.userDirectory());
    QCOMPARE(chmod(QFile::encodeName(roots.userDirectory()).constData(), 0777), 0);
    QVERIFY(import(one));
    QCOMPARE(modeOf(roots.userDirectory()), mode_t(0700));
    QVERIFY(isTrusted(one));
}

void TrustedRootsTest::importTwiceLeavesOneFile()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    QVERIFY(import(one));
    const QString path =
        roots.userDirectory() + QLatin1Char('/') + filesIn(roots.userDirectory()).value(0);
    const vela::RootFiles before = vela::RootLocations::fromEnvironment().files();
    QVERIFY(import(one));
    QVERIFY2(vela::RootLocations::fromEnvironment().files() == before, "it was written again");
    QCOMPARE(filesIn(roots.userDirectory()).size(), 1);
    QVERIFY(import(selfSigned(QStringLiteral("one"))));
    QCOMPARE(filesIn(roots.userDirectory()).size(), 2);
    QVERIFY(QFileInfo::exists(path));
}

void TrustedRootsTest::importReplacesAFileThatIsDamaged()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    QVERIFY(import(one));
    const QString path =
        roots.userDirectory() + QLatin1Char('/') + filesIn(roots.userDirectory()).value(0);
    test::writeFile(path, "damaged");
    QVERIFY(!isTrusted(one));
    QVERIFY(import(one));
    QVERIFY(isTrusted(one));
}

void TrustedRootsTest::importLeavesNothingButTheFile()
{
    test::TrustedRoots roots;
    const QByteArray one = selfSigned(QStringLiteral("one"));
    QVERIFY(import(one));
    const QStringList files = filesIn(roots.userDirectory());
    QCOMPARE(files.size(), 1);
    QFile file(roots.userDirectory() + QLatin1Char('/') + files.first());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), test::toPem(one));
}

void TrustedRootsTest::importOfGarbageFails_data()
{
    QTest::addColumn<QByteArray>("der");
    QTest::addColumn<quint32>("error");
    const QByteArray whole = selfSigned(QStringLiteral("one"));
    QTest::newRow("garbage") << QByteArray("garbage") << quint32(CRYPT_E_ASN1_ERROR);
    QTest::newRow("nothing") << QByteArray("") << quint32(CRYPT_E_ASN1_ERROR);
    QTest::newRow("half a certificate")
        << whole.left(whole.size() / 2) << quint32(CRYPT_E_ASN1_ERROR);
    QTest::newRow("more than a certificate") << whole + "x" << quint32(CRYPT_E_ASN1_ERROR);
}

void TrustedRootsTest::importOfGarbageFails()
{
    QFETCH(QByteArray, der);
    QFETCH(quint32, error);
    test::TrustedRoots roots;
    QVERIFY(!import(der));
    QCOMPARE(platform().lastError(), DWORD(error));
    QVERIFY(!QFileInfo::exists(roots.userDirectory()));
}

void TrustedRootsTest::importIntoAnotherStoreFails()
{
    const test::TrustedRoots roots;
    QVERIFY(!import(selfSigned(QStringLiteral("one")), L"MY"));
    QCOMPARE(platform().lastError(), DWORD(ERROR_FILE_NOT_FOUND));
    QVERIFY(!platform().addEncodedCertificateToSystemStore(L"ROOT", nullptr, 0));
    QCOMPARE(platform().lastError(), DWORD(E_INVALIDARG));
}

void TrustedRootsTest::importWhereNothingCanBeWrittenFails()
{
    test::TrustedRoots roots;
    test::writeFile(roots.path(QStringLiteral("file")), "not a directory");
    roots.environment().set("XDG_DATA_HOME", QFile::encodeName(roots.path(QStringLiteral("file"))));
    QVERIFY(!import(selfSigned(QStringLiteral("one"))));
    QCOMPARE(platform().lastError(), DWORD(ERROR_ACCESS_DENIED));
}

void TrustedRootsTest::filesThatOthersCouldWriteAreNotTrusted_data()
{
    QTest::addColumn<uint>("directoryMode");
    QTest::addColumn<uint>("fileMode");
    QTest::addColumn<bool>("isGood");
    QTest::newRow("for the user alone") << 0700u << 0600u << true;
    QTest::newRow("for all to read") << 0755u << 0644u << true;
    QTest::newRow("for the group to write") << 0700u << 0660u << false;
    QTest::newRow("for all to write") << 0700u << 0606u << false;
    QTest::newRow("in a directory for the group to write") << 0770u << 0600u << false;
    QTest::newRow("in a directory for all to write") << 0707u << 0600u << false;
}

void TrustedRootsTest::filesThatOthersCouldWriteAreNotTrusted()
{
    QFETCH(uint, directoryMode);
    QFETCH(uint, fileMode);
    QFETCH(bool, isGood);
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    QVERIFY(import(one));
    const QString file =
        roots.userDirectory() + QLatin1Char('/') + filesIn(roots.userDirectory()).value(0);
    QCOMPARE(chmod(QFile::encodeName(file).constData(), fileMode), 0);
    QCOMPARE(chmod(QFile::encodeName(roots.userDirectory()).constData(), directoryMode), 0);
    QCOMPARE(isTrusted(one), isGood);
}

void TrustedRootsTest::rootsAreReadOncePerChange()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    roots.setRoots({one});
    const int before = vela::rootCache().readCount();
    {
        test::ChainClient first;
        test::ChainClient second;
        first.ask(one);
        first.ask(one);
        second.ask(one);
    }
    const test::ChainClient third;
    QCOMPARE(vela::rootCache().readCount(), before + 1);

    roots.setRoots({one, selfSigned(QStringLiteral("other"))});
    const test::ChainClient fourth;
    const test::ChainClient fifth;
    QCOMPARE(vela::rootCache().readCount(), before + 2);
}

void TrustedRootsTest::defaultEngineKnowsTheRootsOfNow()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    const PCCERT_CONTEXT context = platform().createCertificateContext(
        X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(one.constData()), DWORD(one.size()));
    const auto errors = [&] {
        CERT_CHAIN_PARA para = {};
        para.cbSize = sizeof para;
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        platform().getCertificateChain(nullptr, context, nullptr, nullptr, &para, 0, nullptr,
                                       &chain);
        const DWORD status = chain->TrustStatus.dwErrorStatus;
        platform().freeCertificateChain(chain);
        return status;
    };
    QCOMPARE(errors(), DWORD(CERT_TRUST_IS_UNTRUSTED_ROOT));
    roots.setRoots({one});
    QCOMPARE(errors(), DWORD(CERT_TRUST_NO_ERROR));
    platform().freeCertificateContext(context);
}

void TrustedRootsTest::engineKeepsTheRootsItWasMadeWith()
{
    const QByteArray one = selfSigned(QStringLiteral("one"));
    test::TrustedRoots roots;
    roots.setRoots({one});
    test::ChainClient client;
    roots.setRoots({});
    QCOMPARE(client.ask(one).errors, DWORD(CERT_TRUST_NO_ERROR));
    client.reset();
    QCOMPARE(client.ask(one).errors, DWORD(CERT_TRUST_IS_UNTRUSTED_ROOT));
}

QTEST_GUILESS_MAIN(TrustedRootsTest)
#include "tst_trustedroots.moc"
