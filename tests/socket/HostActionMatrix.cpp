// SPDX-License-Identifier: BSD-3-Clause
#include "HostActionMatrix.h"

#include "Bystanders.h"
#include "HostActor.h"

#include <QtTest/QtTest>

using vela::SslSocket;

namespace test {

namespace {

const struct
{
    const char* name;
    HostAction action;
} hostActions[] = {
    {"close", HostAction::Close},
    {"abort", HostAction::Abort},
    {"disconnect", HostAction::Disconnect},
    {"disconnect-and-connect", HostAction::Reconnect},
    {"connect", HostAction::ConnectAgain},
    {"write", HostAction::Write},
    {"deleteLater", HostAction::DeleteLater},
    {"delete", HostAction::Delete},
    {"setSocket", HostAction::SetSocket},
    {"waitForReadyRead", HostAction::WaitForReadyRead},
    {"waitForBytesWritten", HostAction::WaitForBytesWritten},
};

const char* const connectionNames[] = {"functor",     "own functor",     "subclass slot", "slot",
                                       "queued slot", "relayed functor", "nested loop"};

//! One row of the matrix while it runs.
class Row
{
public:
    Row(SslSocket::Mode role, const HostSignal& signal, HostAction action,
        HostConnection connection)
        : m_signal(signal)
        , m_action(action)
        , m_conversation(role)
        , m_log(new EmissionLog(m_conversation.socket()))
        , m_socket(m_conversation.socket())
        , m_actor(m_socket, signal, connection, [this] { act(); })
    {
    }

    void run();

private:
    void act();
    void connectAgain();
    void checkDeleted();
    void checkClosed();
    void checkContinued();
    void checkNewConnection();
    void checkUsedAgain();
    void checkReplaced();

    const HostSignal& m_signal;
    HostAction m_action;
    HostConversation m_conversation;
    std::unique_ptr<EmissionLog> m_log;
    QPointer<HostSocket> m_socket;
    HostActor m_actor;
    bool m_newConnection = false;
    bool m_abortedUnconnected = false;
};

void Row::run()
{
    if (m_action == HostAction::SetSocket)
        m_conversation.prepareConnection();
    m_conversation.setDeed(m_signal.deed);
    m_conversation.connectAnew();
    QVERIFY2(waitFor([this] { return m_actor.hasActed(); }), "the signal never came");

    switch (m_action) {
    case HostAction::DeleteLater:
    case HostAction::Delete:
        checkDeleted();
        return;
    case HostAction::Abort:
        if (m_abortedUnconnected)
            checkContinued();
        else
            checkClosed();
        break;
    case HostAction::Close:
    case HostAction::Disconnect:
        checkClosed();
        break;
    case HostAction::Reconnect:
    case HostAction::ConnectAgain:
    case HostAction::SetSocket:
        checkReplaced();
        break;
    case HostAction::Write:
    case HostAction::WaitForReadyRead:
    case HostAction::WaitForBytesWritten:
        checkContinued();
        break;
    }
    if (!QTest::currentTestFailed())
        checkUsedAgain();
}

void Row::act()
{
    switch (m_action) {
    case HostAction::Close:
        m_socket->close();
        break;
    case HostAction::Abort:
        // Qt ignores abort() then, which concerns a server before the end of its handshake.
        m_abortedUnconnected = m_socket->state() == QAbstractSocket::UnconnectedState;
        m_socket->abort();
        break;
    case HostAction::Disconnect:
        m_socket->disconnectFromHost();
        break;
    case HostAction::Reconnect:
        m_socket->disconnectFromHost();
        connectAgain();
        break;
    case HostAction::ConnectAgain:
        connectAgain();
        break;
    case HostAction::Write:
        m_socket->write("written in the slot");
        break;
    case HostAction::DeleteLater:
        m_socket->deleteLater();
        break;
    case HostAction::Delete:
        m_log->emissions.clear();
        delete m_socket;
        break;
    case HostAction::SetSocket:
        m_log->emissions.clear();
        m_newConnection = true;
        m_conversation.adoptPrepared();
        break;
    case HostAction::WaitForReadyRead:
        m_socket->waitForReadyRead(0);
        break;
    case HostAction::WaitForBytesWritten:
        m_socket->waitForBytesWritten(0);
        break;
    }
}

void Row::connectAgain()
{
    m_newConnection = m_socket->state() == QAbstractSocket::UnconnectedState
                      && m_conversation.role() == SslSocket::Client;
    m_log->emissions.clear();
    m_conversation.connectOut(); // Warns, and does nothing else, while there is a connection.
}

void Row::checkDeleted()
{
    if (m_action == HostAction::DeleteLater) {
        QVERIFY(waitFor([this] { return m_socket.isNull(); }));
        m_log->emissions.clear();
    }
    QVERIFY(m_socket.isNull());
    settle();
    QCOMPARE(m_log->emissions, QByteArrayList());
}

void Row::checkClosed()
{
    QVERIFY(m_conversation.becomesUnconnected());
    settle();
    QCOMPARE(m_socket->state(), QAbstractSocket::UnconnectedState);
}

void Row::checkContinued()
{
    // Waiting for data includes waiting for the connection, and a wait in vain gives that up.
    const bool gaveUp = m_signal.clientsOnly && m_action == HostAction::WaitForReadyRead;
    if (m_signal.endsConnection || gaveUp) {
        settle();
        return;
    }
    QVERIFY(m_conversation.becomesConnected(*m_log));
    QVERIFY(m_conversation.exchanges("the connection goes on"));
    if (m_action == HostAction::Write)
        QVERIFY(m_conversation.peer()->received().contains("written in the slot"));
    QCOMPARE(m_log->count("connected"), 1);
    QCOMPARE(m_log->count("connectionVerificationDone"), 1);
}

void Row::checkReplaced()
{
    if (m_newConnection)
        checkNewConnection();
    else
        settle();
}

void Row::checkNewConnection()
{
    QVERIFY(m_conversation.becomesConnected(*m_log));
    QVERIFY(m_conversation.exchanges("the new connection works"));
    QCOMPARE(m_log->count("connectionVerificationDone"), 1);
    QCOMPARE(m_log->count("connected"), 1);
    QVERIFY(!m_conversation.peer()->received().contains("written in the slot"));
}

void Row::checkUsedAgain()
{
    m_socket->close();
    QVERIFY(m_conversation.becomesUnconnected());
    settle();
    m_log = std::make_unique<EmissionLog>(m_socket);
    m_conversation.connectAnew();
    checkNewConnection();
    if (QTest::currentTestFailed())
        qWarning() << "what was emitted:" << m_log->emissions << m_socket->errorString();
}

} // namespace

const std::vector<HostSignal>& hostSignals()
{
    using S = QAbstractSocket;
    const char* const stateChanged = SIGNAL(stateChanged(QAbstractSocket::SocketState));
    const char* const error = SIGNAL(error(QAbstractSocket::SocketError));
    const char* const errorOccurred = SIGNAL(errorOccurred(QAbstractSocket::SocketError));
    static const std::vector<HostSignal> table = {
        {"readyRead", SIGNAL(readyRead()), -1, PeerDeed::Write, false, false},
         {"connected", SIGNAL(connected()), -1, PeerDeed::Nothing, false, false},
          {"disconnected", SIGNAL(disconnected()), -1, PeerDeed::HangUp, false, true},
           {"disconnected by close-notify",
            SIGNAL(disconnected()), -1, PeerDeed::CloseNotify, false, true},
            {"error of the transport", error, -1, PeerDeed::HangUp, false, true},
            {"error of TLS", error, -1, PeerDeed::Garbage, false, true},
            {"errorOccurred of the transport", errorOccurred, -1, PeerDeed::HangUp, false, true},
            {"errorOccurred of TLS", errorOccurred, -1, PeerDeed::Garbage, false, true},
            {"HostLookupState", stateChanged, S::HostLookupState, PeerDeed::Nothing, true, false},
            {"ConnectingState", stateChanged, S::ConnectingState, PeerDeed::Nothing, true, false},
            {"ConnectedState", stateChanged, S::ConnectedState, PeerDeed::Nothing, false, false},
            {"ClosingState", stateChanged, S::ClosingState, PeerDeed::HangUp, false, true},
            {"ClosingState by close-notify", stateChanged, S::ClosingState, PeerDeed::CloseNotify,
             false, true},
            {"UnconnectedState", stateChanged, S::UnconnectedState, PeerDeed::HangUp, false, true},
            {"bytesWritten", SIGNAL(bytesWritten(qint64)), -1, PeerDeed::ReadMuch, false, false},
             {"connectionVerificationDone",
              SIGNAL(connectionVerificationDone(vela::CertVerify,bool,QString)), -1,
                     PeerDeed::Nothing, false, false},
             };
    return table;
}

void addHostActionRows(const std::vector<HostConnection>& connections)
{
    QTest::addColumn<int>("role");
    QTest::addColumn<const test::HostSignal*>("signal");
    QTest::addColumn<test::HostAction>("action");
    QTest::addColumn<test::HostConnection>("connection");
    for (const HostConnection connection : connections) {
        for (const auto role : {SslSocket::Client, SslSocket::Server}) {
            for (const HostSignal& signal : hostSignals()) {
                if (signal.clientsOnly && role == SslSocket::Server)
                    continue;
                for (const auto& action : hostActions) {
                    QTest::addRow("%s, %s, %s, %s", role == SslSocket::Client ? "client" : "server",
                                  signal.name, action.name,
                                  connectionNames[static_cast<int>(connection)])
                        << int(role) << &signal << action.action << connection;
                }
            }
        }
    }
}

void runHostActionRow()
{
    QFETCH(int, role);
    QFETCH(const test::HostSignal*, signal);
    QFETCH(test::HostAction, action);
    QFETCH(test::HostConnection, connection);
    static Bystanders bystanders;
    {
        Row row(static_cast<SslSocket::Mode>(role), *signal, action, connection);
        row.run();
    }
    QVERIFY(bystanders.stillExchange());
}

} // namespace test
