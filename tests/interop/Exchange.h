// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_EXCHANGE_H
#define FERRULE_TESTS_EXCHANGE_H

#include <QtCore/QCryptographicHash>
#include <QtCore/QEventLoop>
#include <QtCore/QIODevice>

#include <functional>
#include <memory>
#include <vector>

namespace vela {
class SslSocket;
}

namespace test {

constexpr qint64 PAYLOAD_SIZE = 64 * 1024 * 1024;

/*!
    A stream of PAYLOAD_SIZE bytes that never repeats and is the same for the same seed.
*/
class Payload
{
public:
    enum Kind {
        Binary, //!< Every byte value.
        Lines   //!< Printable characters in lines of 64, for peers that take nothing else.
    };

    explicit Payload(quint64 seed, Kind kind = Binary);

    //! Returns the next piece; empty at the end.
    QByteArray next();
    //! Returns the SHA-256 digest of the whole stream.
    QByteArray digest() const;
    //! Writes the whole stream to a new file.
    bool save(const QString& path) const;

private:
    quint64 m_seed;
    Kind m_kind;
    quint64 m_state;
    qint64 m_position = 0;
};

//! Returns the SHA-256 digest of a file.
QByteArray digestOfFile(const QString& path);

/*!
    Carries payloads over several devices at once, so that none has to wait for another. What a
    device is given is bounded: more is written only when it has taken what it holds.
*/
class Exchange : public QObject
{
    Q_OBJECT

public:
    void send(const QString& name, QIODevice* to, const Payload& payload);
    void receive(const QString& name, QIODevice* from, const Payload& expected);

    /*!
        Runs until everything was sent and received, or something failed, or time is up. Returns
        what is wrong, an empty string when every byte arrived unaltered.
    */
    QString run();

private:
    struct Outgoing
    {
        QString name;
        QIODevice* device;
        Payload payload;
        bool sent;
    };
    struct Incoming
    {
        QString name;
        QIODevice* device;
        QByteArray expected;
        QCryptographicHash hash;
        qint64 count;
    };

    void feed(Outgoing& stream);
    void drain(Incoming& stream);
    void watch(const QString& name, QIODevice* device);
    void check();
    QString verdict() const;

    std::vector<std::unique_ptr<Outgoing>> m_outgoing;
    std::vector<std::unique_ptr<Incoming>> m_incoming;
    QString m_failure;
    QEventLoop m_loop;
};

} // namespace test

#endif
