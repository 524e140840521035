// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/OpenSslCommand.h"

#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>

namespace test {

QString openSslCommand()
{
    return QStandardPaths::findExecutable(QStringLiteral("openssl"));
}

bool isContinuousIntegration()
{
    return qEnvironmentVariableIsSet("CI");
}

QByteArray runOpenSsl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.setProgram(openSslCommand());
    process.setArguments(arguments);
    process.start();
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished() || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        qFatal("openssl %s: %s %s", qPrintable(arguments.join(QLatin1Char(' '))),
               qPrintable(process.errorString()), process.readAllStandardError().constData());
    }
    return process.readAllStandardOutput();
}

} // namespace test
