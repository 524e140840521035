// SPDX-License-Identifier: BSD-3-Clause
#include "tests/common/ClientHello.h"

#include "tests/common/FreshPort.h"

#include <QtCore/QDataStream>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QtTest>

#include <memory>

namespace test {

namespace {

constexpr int RECORD_HEADER = 5;
constexpr int HANDSHAKE_HEADER = 4;
constexpr int VERSION_AND_RANDOM = 34;
constexpr quint16 SESSION_TICKET = 35;
constexpr quint16 PRE_SHARED_KEY = 41;

bool isGoverned(quint16 suite)
{
    const bool signalling = suite == 0x00FF || suite == 0x5600;
    return !signalling && (suite >> 8) != 0x13;
}

int recordLength(const QByteArray& data)
{
    if (data.size() < RECORD_HEADER)
        return -1;
    return RECORD_HEADER + (quint8(data.at(3)) << 8) + quint8(data.at(4));
}

ClientHello parse(const QByteArray& record)
{
    ClientHello hello;
    QDataStream stream(record.mid(RECORD_HEADER + HANDSHAKE_HEADER + VERSION_AND_RANDOM));
    quint8 sessionIdLength = 0;
    stream >> sessionIdLength;
    stream.skipRawData(sessionIdLength);

    quint16 suitesLength = 0;
    stream >> suitesLength;
    for (int i = 0; i < suitesLength / 2; ++i) {
        quint16 suite = 0;
        stream >> suite;
        if (isGoverned(suite))
            hello.suites.append(suite);
    }

    quint8 compressionsLength = 0;
    stream >> compressionsLength;
    stream.skipRawData(compressionsLength);
    quint16 extensionsLength = 0;
    stream >> extensionsLength;
    while (!stream.atEnd()) {
        quint16 type = 0;
        quint16 length = 0;
        stream >> type >> length;
        QByteArray content(length, '\0');
        stream.readRawData(content.data(), length);
        if (type == SESSION_TICKET || type == PRE_SHARED_KEY)
            hello.session += content;
    }
    return hello;
}

} // namespace

HelloCollector::HelloCollector(quint16 port)
{
    connect(this, &QTcpServer::newConnection, this, &HelloCollector::acceptConnections);
    if (port == 0)
        listenOnFreshPort(this);
    else if (!listen(QHostAddress::LocalHost, port))
        qFatal("cannot listen on loopback: %s", qPrintable(errorString()));
}

bool HelloCollector::waitForHellos(int count, int milliseconds)
{
    return QTest::qWaitFor([this, count] { return m_hellos.size() >= count; }, milliseconds);
}

void HelloCollector::acceptConnections()
{
    while (QTcpSocket* connection = nextPendingConnection()) {
        connection->setParent(this);
        const auto data = std::make_shared<QByteArray>();
        connect(connection, &QIODevice::readyRead, this, [this, connection, data] {
            data->append(connection->readAll());
            if (recordLength(*data) == data->size())
                m_hellos.append(parse(*data));
        });
    }
}

} // namespace test

#include "moc_ClientHello.cpp"
