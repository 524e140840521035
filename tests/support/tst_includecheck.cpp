// SPDX-License-Identifier: BSD-3-Clause
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {

const QString CHECK = QStringLiteral(FERRULE_SOURCE "/cmake/check-includes.pl");

struct Run
{
    explicit Run(const QStringList& arguments)
    {
        QProcess process;
        process.start(QStringLiteral("perl"), QStringList{CHECK} + arguments);
        ended = process.waitForFinished() && process.exitStatus() == QProcess::NormalExit;
        code = process.exitCode();
        output = process.readAllStandardOutput();
        errors = process.readAllStandardError();
    }

    QByteArray said() const { return output + errors; }

    bool ended;
    int code;
    QByteArray output;
    QByteArray errors;
};

//! A library of two files for each subsystem, one of them a public header, that break no rule.
class Library
{
public:
    Library()
    {
        for (const char* name :
             {"resources", "support", "support/module", "cert", "socket", "store", "store/platform",
              "store/platform/linux", "store/platform/linux/roots", "store/validation"}) {
            const QString directory = QString::fromLatin1(name);
            const QString header =
                QLatin1Char('P') + QFileInfo(directory).fileName() + QStringLiteral(".h");
            write(directory + QStringLiteral("/Plain.h"), "#include <vector>\n");
            write(directory + QLatin1Char('/') + header, "\n");
            write(directory + QStringLiteral("/CMakeLists.txt"),
                  "add(name\n    PUBLIC_HEADERS " + header.toLatin1()
                      + "\n                   Other.h\n    SOURCES Plain.cpp)\n");
        }
        // What does not belong to the library has no rules.
        write(QStringLiteral("tests/Test.cpp"), "#include \"socket/Psocket.h\"\n");
        write(QStringLiteral("build/Built.h"), "#include \"nothing\"\n");
    }

    void write(const QString& name, const QByteArray& content) const
    {
        const QString path = m_directory.filePath(name);
        QFile file(path);
        if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly)
            || file.write(content) != content.size()) {
            qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
        }
    }

    Run check() const { return Run({m_directory.path()}); }

private:
    QTemporaryDir m_directory;
};

} // namespace

/*
    The check that holds the library's includes against the order of its subsystems.
*/
class IncludeCheckTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void projectBreaksNoRule();
    void downwardsIsAllowed_data();
    void downwardsIsAllowed();
    void faultIsFound_data();
    void faultIsFound();
    void everyFaultIsTold();
    void fileOutsideOfAllSubsystemsIsFound();
    void treeWithoutSourcesIsNoSuccess();
};

void IncludeCheckTest::projectBreaksNoRule()
{
    const Run run({});
    QVERIFY2(run.ended && run.code == 0, run.said());
    QCOMPARE(run.output, QByteArray());
}

void IncludeCheckTest::downwardsIsAllowed_data()
{
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QByteArray>("included");
    const auto row = [](const char* directory, const char* included) {
        QTest::addRow("%s, %s", directory, included)
            << QString::fromLatin1(directory) << QByteArray(included);
    };
    row("support", "\"support/Plain.h\"");
    row("support", "<sys/stat.h>");
    row("cert", "<Ferrule/Psupport.h>");
    row("cert", "\"cert/Plain.h\"");
    row("socket", "<Ferrule/Pcert.h>");
    row("socket", "\"support/Plain.h\"");
    row("store", "<Ferrule/Pcert.h>");
    row("store", "\"store/platform/Plain.h\"");
    row("store/platform", "\"support/Plain.h\"");
    row("store/platform", "<windows.h>");
    row("store/platform/linux", "\"store/validation/Plain.h\"");
    row("store/platform/linux", "\"store/platform/Plain.h\"");
    row("store/platform/linux/roots", "\"store/platform/linux/Plain.h\"");
    row("store/platform/linux/roots", "<unistd.h>");
    row("store/validation", "<Ferrule/Pcert.h>");
    row("support/module", "\"socket/Plain.h\"");
    row("support/module", "<Ferrule/Pstore.h>");
    row("support/module", "\"resources/Plain.h\"");
    row("support/module", "\"support/module/Plain.h\"");
}

void IncludeCheckTest::downwardsIsAllowed()
{
    QFETCH(QString, directory);
    QFETCH(QByteArray, included);
    const Library library;
    library.write(directory + QStringLiteral("/File.cpp"), "#include " + included + '\n');
    const Run run = library.check();
    QVERIFY2(run.ended && run.code == 0, run.said());
    QCOMPARE(run.output, QByteArray());
}

void IncludeCheckTest::faultIsFound_data()
{
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("fault");
    const auto row = [](const char* directory, const QByteArray& line, const QByteArray& fault) {
        QTest::addRow("%s, %s", directory, line.constData())
            << QString::fromLatin1(directory) << line << fault;
    };
    const auto arrow = [&](const char* from, const char* included, const char* to) {
        row(from, QByteArray("#include ") + included,
            QByteArray(included) + ": " + from + " does not include " + to + ", only ");
    };
    arrow("support", "<Ferrule/Pcert.h>", "cert");
    arrow("support", "\"socket/Plain.h\"", "socket");
    arrow("support", "\"resources/Plain.h\"", "resources");
    arrow("support", "\"support/module/Plain.h\"", "support/module");
    arrow("cert", "\"socket/Plain.h\"", "socket");
    arrow("cert", "<Ferrule/Pstore.h>", "store");
    arrow("socket", "\"store/Plain.h\"", "store");
    arrow("socket", "<Ferrule/Pplatform.h>", "store/platform");
    arrow("socket", "\"support/module/Plain.h\"", "support/module");
    arrow("store", "<Ferrule/Psocket.h>", "socket");
    arrow("store", "\"store/validation/Plain.h\"", "store/validation");
    arrow("store", "\"store/platform/linux/Plain.h\"", "store/platform/linux");
    arrow("store/platform", "\"store/platform/linux/roots/Plain.h\"", "store/platform/linux");
    arrow("store/platform", "\"store/Plain.h\"", "store");
    arrow("store/platform/linux", "\"store/Plain.h\"", "store");
    arrow("store/platform/linux", "\"socket/Plain.h\"", "socket");
    arrow("store/validation", "\"store/platform/Plain.h\"", "store/platform");
    arrow("store/validation", "<Ferrule/Plinux.h>", "store/platform/linux");
    arrow("store/validation", "\"store/Plain.h\"", "store");
    arrow("resources", "\"support/Plain.h\"", "support");
    arrow("support/module", "\"store/validation/Plain.h\"", "store/validation");

    row("cert", "#  include <unistd.h>", "<unistd.h>: cert knows no operating system");
    row("socket", "#include <windows.h>", "<windows.h>: socket knows no operating system");
    row("store/validation", "#include <sys/stat.h>",
        "<sys/stat.h>: store/validation knows no operating system");
    row("store/validation", "using Error = DWORD;", "DWORD: store/validation does not know ");
    row("store/validation", "x |= CERT_TRUST_IS_REVOKED;", "CERT_TRUST: store/validation does ");

    row("socket", "#include \"cert/Pcert.h\"", "\"cert/Pcert.h\": write <Ferrule/Pcert.h> ");
    row("cert", "#include \"cert/Pcert.h\"", "\"cert/Pcert.h\": write <Ferrule/Pcert.h> ");
    row("cert", "#include <cert/Plain.h>", "<cert/Plain.h>: write \"cert/Plain.h\" ");
    row("cert", "#include \"Plain.h\"", "\"Plain.h\": there is no such header in the library");
    row("cert", "#include \"../cert/Plain.h\"",
        "\"../cert/Plain.h\": there is no such header in the library");
    row("cert", "#include \"tests/Test.cpp\"",
        "\"tests/Test.cpp\": there is no such header in the library");
    row("cert", "#include <Ferrule/Plain.h>", "<Ferrule/Plain.h>: there is no such public header");
}

void IncludeCheckTest::faultIsFound()
{
    QFETCH(QString, directory);
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, fault);
    const Library library;
    library.write(directory + QStringLiteral("/File.cpp"), "#include <vector>\n" + line + '\n');
    const Run run = library.check();
    QVERIFY(run.ended);
    QCOMPARE(run.code, 1);
    QVERIFY2(run.output.startsWith(directory.toLatin1() + "/File.cpp:2: " + fault), run.output);
    QCOMPARE(run.output.count('\n'), 1);
}

void IncludeCheckTest::everyFaultIsTold()
{
    const Library library;
    library.write(QStringLiteral("cert/A.h"), "#include \"socket/Plain.h\"\n");
    library.write(QStringLiteral("support/B.cpp"),
                  "\n#include \"cert/Plain.h\"\n#include \"store/Plain.h\"\n");
    const Run run = library.check();
    QVERIFY(run.ended);
    QCOMPARE(run.code, 1);
    for (const char* place : {"cert/A.h:1: ", "support/B.cpp:2: ", "support/B.cpp:3: "})
        QVERIFY2(run.output.contains(place), run.output);
    QCOMPARE(run.output.count('\n'), 3);
}

void IncludeCheckTest::fileOutsideOfAllSubsystemsIsFound()
{
    const Library library;
    library.write(QStringLiteral("proxy/New.cpp"), "#include <vector>\n");
    const Run run = library.check();
    QVERIFY(run.ended);
    QCOMPARE(run.code, 1);
    QCOMPARE(run.output, QByteArray("proxy/New.cpp:1: the file belongs to no subsystem\n"));
}

void IncludeCheckTest::treeWithoutSourcesIsNoSuccess()
{
    const QTemporaryDir empty;
    const Run run({empty.path()});
    QVERIFY(run.ended);
    QVERIFY(run.code != 0);
    QVERIFY2(run.errors.contains("there are no sources"), run.errors);
}

QTEST_GUILESS_MAIN(IncludeCheckTest)
#include "tst_includecheck.moc"
