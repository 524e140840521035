// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/OpenSslCommand.h"
#include "tests/common/TestCertificates.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

namespace {

constexpr int DEADLINE_MS = 240000; // The scripts start hundreds of processes.

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString resource(const QString& name)
{
    return QStringLiteral(FERRULE_RESOURCES "/") + name;
}

struct Run
{
    Run(const QString& program, const QStringList& arguments)
    {
        QProcess process;
        process.start(program, arguments);
        succeeded = process.waitForFinished(DEADLINE_MS)
                    && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
        output = process.readAllStandardOutput();
        errors = process.readAllStandardError();
    }

    bool succeeded;
    QByteArray output;
    QByteArray errors;
};

//! A directory of roots, said to have been collected on \a day.
class Roots : public test::PemDirectory
{
public:
    Roots(int count, const QDate& day = QDate::currentDate())
    {
        write(QStringLiteral("README.md"),
              QStringLiteral("| source | a test |\n| collected | %1 |\n| roots | %2 |\n")
                  .arg(day.toString(Qt::ISODate))
                  .arg(count)
                  .toUtf8());
    }

    Run bundle(const QString& output = QStringLiteral("-")) const
    {
        return {resource(QStringLiteral("roots.sh")),
                {QStringLiteral("bundle"), QStringLiteral("--roots"), path(),
                 QStringLiteral("--output"), output}};
    }
};

const QString FIRST = QStringLiteral("a.pem");
const QString SECOND = QStringLiteral("b.pem");

} // namespace

/*
    What is checked in and made by scripts is what the scripts make.
*/
class ResourceScriptsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void bundleIsMadeOfTheRoots();
    void bundleKeepsItsLineEndsInGit();
    void bundleIsInOrderOfNames();
    void bundleLeavesOutTextAroundTheCertificate();
    void rootThatExpiredSinceIsKept();
    void badRootIsRefused_data();
    void badRootIsRefused();
    void sameRootTwiceIsRefused();
    void expiredRootIsRefused();
    void missingRootIsRefused();
    void refusedRootsLeaveTheBundleAlone();
    void cataloguesAreCompiledFromTheirSources();
};

void ResourceScriptsTest::init()
{
    FERRULE_REQUIRE_OPENSSL_COMMAND();
}

void ResourceScriptsTest::bundleIsMadeOfTheRoots()
{
    const Run run(resource(QStringLiteral("roots.sh")),
                  {QStringLiteral("bundle"), QStringLiteral("--output"), QStringLiteral("-")});
    QVERIFY2(run.succeeded, run.errors);
    QVERIFY(run.output == contents(resource(QStringLiteral("RootCerts.pem"))));
    // It says what the bundle is made of.
    const QByteArray readme = contents(resource(QStringLiteral("roots/README.md")));
    const QRegularExpression row(QStringLiteral("^\\| (?:source|collected|roots) \\| (.*) \\|$"),
                                 QRegularExpression::MultilineOption);
    auto rows = row.globalMatch(QString::fromUtf8(readme));
    for (int i = 0; i < 3; ++i) {
        QVERIFY(rows.hasNext());
        const QByteArray value = rows.next().captured(1).toUtf8();
        QVERIFY2(run.errors.contains(value), run.errors);
    }
}

void ResourceScriptsTest::bundleKeepsItsLineEndsInGit()
{
    if (!QFileInfo::exists(resource(QStringLiteral("../.git")))) {
        if (test::isContinuousIntegration())
            QFAIL("the sources are not in a git repository");
        QSKIP("the sources are not in a git repository");
    }
    const Run run(QStringLiteral("git"),
                  {QStringLiteral("-c"), QStringLiteral("safe.directory=*"), QStringLiteral("-C"),
                   resource(QString()), QStringLiteral("check-attr"), QStringLiteral("text"),
                   QStringLiteral("RootCerts.pem")});
    QVERIFY2(run.succeeded, run.errors);
    QCOMPARE(run.output.trimmed(), QByteArray("RootCerts.pem: text: unset"));
}

void ResourceScriptsTest::bundleIsInOrderOfNames()
{
    const test::Identity first = test::makeIdentity({});
    const test::Identity second = test::makeIdentity({});
    const Roots roots(2);
    roots.writeCertificate(SECOND, second);
    roots.writeCertificate(FIRST, first);
    const Run run = roots.bundle();
    QVERIFY2(run.succeeded, run.errors);
    const QByteArray expected = '\n' + first.certificatePem() + second.certificatePem();
    QCOMPARE(run.output, QByteArray(expected).replace('\n', "\r\n"));
}

void ResourceScriptsTest::bundleLeavesOutTextAroundTheCertificate()
{
    const test::Identity root = test::makeIdentity({});
    const Roots roots(1);
    QByteArray pem = root.certificatePem();
    roots.write(FIRST, "before\r\n" + pem.replace('\n', "\r\n") + "after\r\n");
    const Run run = roots.bundle();
    QVERIFY2(run.succeeded, run.errors);
    QCOMPARE(run.output, "\r\n" + pem);
}

void ResourceScriptsTest::rootThatExpiredSinceIsKept()
{
    test::CertificateSpec spec;
    spec.notBeforeOffset = -3 * 86400;
    spec.notAfterOffset = -86400;
    const Roots roots(1, QDate::currentDate().addDays(-5));
    roots.writeCertificate(FIRST, test::makeIdentity(spec));
    const Run run = roots.bundle();
    QVERIFY2(run.succeeded, run.errors);
}

void ResourceScriptsTest::badRootIsRefused_data()
{
    const QByteArray pem = test::makeIdentity({}).certificatePem();
    QByteArray damaged = pem;
    damaged.replace(damaged.indexOf('\n') + 1, 4, "AAAA");
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("no certificate\n");
    QTest::newRow("truncated") << pem.left(pem.size() / 2);
    QTest::newRow("damaged") << damaged;
    QTest::newRow("private key") << test::makeIdentity({}).keyPem();
    QTest::newRow("DER") << test::makeIdentity({}).der();
    QTest::newRow("two certificates") << pem + test::makeIdentity({}).certificatePem();
}

void ResourceScriptsTest::badRootIsRefused()
{
    QFETCH(QByteArray, content);
    const Roots roots(2);
    roots.writeCertificate(FIRST, test::makeIdentity({}));
    const QString bad = roots.write(SECOND, content);
    const Run run = roots.bundle();
    QVERIFY(!run.succeeded);
    QVERIFY(run.output.isEmpty());
    QVERIFY2(run.errors.contains(bad.toUtf8() + " does not hold exactly one certificate"),
             run.errors);
}

void ResourceScriptsTest::sameRootTwiceIsRefused()
{
    const test::Identity root = test::makeIdentity({});
    const Roots roots(2);
    roots.writeCertificate(FIRST, root);
    roots.writeCertificate(SECOND, root);
    const Run run = roots.bundle();
    QVERIFY(!run.succeeded);
    QVERIFY(run.output.isEmpty());
    QVERIFY2(run.errors.contains("holds the same certificate"), run.errors);
}

void ResourceScriptsTest::expiredRootIsRefused()
{
    test::CertificateSpec spec;
    spec.notBeforeOffset = -4 * 86400;
    spec.notAfterOffset = -2 * 86400;
    const Roots roots(1);
    roots.writeCertificate(FIRST, test::makeIdentity(spec));
    const Run run = roots.bundle();
    QVERIFY(!run.succeeded);
    QVERIFY(run.output.isEmpty());
    QVERIFY2(run.errors.contains("had expired"), run.errors);
}

void ResourceScriptsTest::missingRootIsRefused()
{
    const Roots roots(2);
    roots.writeCertificate(FIRST, test::makeIdentity({}));
    const Run run = roots.bundle();
    QVERIFY(!run.succeeded);
    QVERIFY2(run.errors.contains("there are 1 roots where 2 were collected"), run.errors);
}

void ResourceScriptsTest::refusedRootsLeaveTheBundleAlone()
{
    const Roots roots(1);
    roots.write(FIRST, "no certificate\n");
    const QString bundle = roots.write(QStringLiteral("bundle"), "as it was");
    QVERIFY(!roots.bundle(bundle).succeeded);
    QCOMPARE(contents(bundle), QByteArray("as it was"));
}

void ResourceScriptsTest::cataloguesAreCompiledFromTheirSources()
{
    // The name alone tells nothing: Debian has a command for it that runs whichever is installed.
    if (!Run(QStringLiteral("lrelease"), {QStringLiteral("-version")}).succeeded) {
        if (test::isContinuousIntegration())
            QFAIL("lrelease is not installed");
        QSKIP("lrelease is not installed: the catalogues may not be those of their sources");
    }
    const QTemporaryDir directory;
    const Run run(resource(QStringLiteral("catalogues.sh")),
                  {QStringLiteral("--output"), directory.path()});
    QVERIFY2(run.succeeded, run.errors);
    for (const char* name : {"Ferrule_de.qm", "Ferrule_fr.qm"}) {
        const QByteArray compiled = contents(directory.filePath(QString::fromLatin1(name)));
        QVERIFY2(!compiled.isEmpty(), name);
        QVERIFY2(compiled == contents(resource(QString::fromLatin1(name))), name);
    }
}

QTEST_GUILESS_MAIN(ResourceScriptsTest)
#include "tst_resourcescripts.moc"
