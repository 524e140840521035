// SPDX-License-Identifier: BSD-3-Clause
#include "tests/interop/Exchange.h"

#include <Ferrule/SslSocket.h>

#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QPair>
#include <QtCore/QTimer>

#include <algorithm>
#include <cstring>

namespace test {

namespace {

constexpr int PIECE_SIZE = 64 * 1024;
constexpr qint64 BACKLOG_LIMIT = 512 * 1024;
constexpr int LINE_LENGTH = 64;
constexpr int DEADLINE_MS = 100000;
constexpr char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";

quint64 nextRandom(quint64& state)
{
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

qint64 backlogOf(QIODevice* device)
{
    qint64 backlog = device->bytesToWrite();
    if (auto* socket = qobject_cast<vela::SslSocket*>(device))
        backlog += socket->socket()->bytesToWrite();
    return backlog;
}

} // namespace

Payload::Payload(quint64 seed, Kind kind)
    : m_seed(seed)
    , m_kind(kind)
    , m_state(seed * 0x9E3779B97F4A7C15ULL + 1)
{
}

QByteArray Payload::next()
{
    if (m_position >= PAYLOAD_SIZE)
        return QByteArray();
    QByteArray piece(PIECE_SIZE, Qt::Uninitialized);
    for (int i = 0; i < PIECE_SIZE; i += int(sizeof(quint64))) {
        const quint64 value = nextRandom(m_state);
        std::memcpy(piece.data() + i, &value, sizeof value);
    }
    if (m_kind == Lines) {
        for (char& byte : piece)
            byte = ALPHABET[static_cast<unsigned char>(byte) % (sizeof ALPHABET - 1)];
        for (int i = LINE_LENGTH - 1; i < PIECE_SIZE; i += LINE_LENGTH)
            piece[i] = '\n';
    }
    m_position += piece.size();
    return piece;
}

QByteArray Payload::digest() const
{
    static QHash<QPair<quint64, int>, QByteArray> known;
    QByteArray& digest = known[{m_seed, m_kind}];
    if (digest.isEmpty()) {
        Payload stream(m_seed, m_kind);
        QCryptographicHash hash(QCryptographicHash::Sha256);
        for (QByteArray piece = stream.next(); !piece.isEmpty(); piece = stream.next())
            hash.addData(piece);
        digest = hash.result();
    }
    return digest;
}

bool Payload::save(const QString& path) const
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    Payload stream(m_seed, m_kind);
    for (QByteArray piece = stream.next(); !piece.isEmpty(); piece = stream.next()) {
        if (file.write(piece) != piece.size())
            return false;
    }
    return true;
}

QByteArray digestOfFile(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return QByteArray();
    return hash.result();
}

void Exchange::send(const QString& name, QIODevice* to, const Payload& payload)
{
    m_outgoing.emplace_back(new Outgoing{name, to, payload, false});
    Outgoing* stream = m_outgoing.back().get();
    connect(to, &QIODevice::bytesWritten, this, [this, stream] { feed(*stream); });
    watch(name, to);
    QTimer::singleShot(0, this, [this, stream] { feed(*stream); });
}

void Exchange::receive(const QString& name, QIODevice* from, const Payload& expected)
{
    m_incoming.emplace_back(new Incoming{name, from, expected.digest(),
                                         QCryptographicHash(QCryptographicHash::Sha256), 0});
    Incoming* stream = m_incoming.back().get();
    connect(from, &QIODevice::readyRead, this, [this, stream] { drain(*stream); });
    watch(name, from);
    QTimer::singleShot(0, this, [this, stream] { drain(*stream); });
}

QString Exchange::run()
{
    QTimer::singleShot(DEADLINE_MS, &m_loop, &QEventLoop::quit);
    m_loop.exec();
    for (const auto& stream : m_outgoing)
        stream->device->disconnect(this);
    for (const auto& stream : m_incoming)
        stream->device->disconnect(this);
    return m_failure.isEmpty() ? verdict() : m_failure;
}

void Exchange::feed(Outgoing& stream)
{
    while (!stream.sent && backlogOf(stream.device) < BACKLOG_LIMIT) {
        const QByteArray piece = stream.payload.next();
        stream.sent = piece.isEmpty();
        if (!stream.sent && stream.device->write(piece) != piece.size()) {
            m_failure = stream.name + QStringLiteral(": a write was not accepted whole");
            m_loop.quit();
            return;
        }
    }
    check();
}

void Exchange::drain(Incoming& stream)
{
    const QByteArray data = stream.device->readAll();
    stream.hash.addData(data);
    stream.count += data.size();
    check();
}

void Exchange::watch(const QString& name, QIODevice* device)
{
    auto* socket = qobject_cast<QAbstractSocket*>(device);
    if (!socket)
        return;
    connect(socket, &QAbstractSocket::errorOccurred, this, [this, name, socket] {
        m_failure = name + QStringLiteral(": ") + socket->errorString();
        m_loop.quit();
    });
}

void Exchange::check()
{
    const bool sent = std::all_of(m_outgoing.begin(), m_outgoing.end(),
                                  [](const auto& stream) { return stream->sent; });
    const bool received = std::all_of(m_incoming.begin(), m_incoming.end(), [](const auto& stream) {
        return stream->count >= PAYLOAD_SIZE;
    });
    if (sent && received)
        m_loop.quit();
}

QString Exchange::verdict() const
{
    for (const auto& stream : m_outgoing) {
        if (!stream->sent)
            return stream->name + QStringLiteral(": not everything could be sent");
    }
    for (const auto& stream : m_incoming) {
        if (stream->count != PAYLOAD_SIZE) {
            return QStringLiteral("%1: %2 of %3 bytes arrived")
                .arg(stream->name)
                .arg(stream->count)
                .arg(PAYLOAD_SIZE);
        }
        if (stream->hash.result() != stream->expected)
            return stream->name + QStringLiteral(": the digest differs");
    }
    return QString();
}

} // namespace test

#include "moc_Exchange.cpp"
