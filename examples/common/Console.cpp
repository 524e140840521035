// SPDX-License-Identifier: BSD-3-Clause
#include "common/Console.h"

#include <QtCore/QCoreApplication>

#include <cstdio>

namespace console {

namespace {

bool showsDebugMessages = false;

void writeLine(FILE* stream, const QString& text)
{
    const QByteArray line = text.toLocal8Bit() + '\n';
    std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stream);
    std::fflush(stream);
}

void handleMessage(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    const bool chatter = type == QtDebugMsg || type == QtInfoMsg;
    if (!chatter || showsDebugMessages)
        complain(printable(text));
}

} // namespace

void complain(const QString& text)
{
    writeLine(stderr, QCoreApplication::applicationName() + QStringLiteral(": ") + text);
}

void note(const QString& text)
{
    writeLine(stderr, text);
}

void print(const QString& text)
{
    writeLine(stdout, text);
}

QString printable(const QString& text)
{
    QString result;
    for (const QChar character : text) {
        if (character.isPrint() || character.isSurrogate())
            result += character;
        else
            result +=
                QStringLiteral("\\x%1").arg(uint(character.unicode()), 2, 16, QLatin1Char('0'));
    }
    return result;
}

void installMessageHandler(bool verbose)
{
    showsDebugMessages = verbose;
    qInstallMessageHandler(handleMessage);
}

} // namespace console
