// SPDX-License-Identifier: BSD-3-Clause
#include "HostActionMatrix.h"

#include "Bystanders.h"
#include "HostActor.h"

#include <QtTest/QtTest>

#include <algorithm>

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
    {"abort-and-connect", HostAction::AbortAndConnect},
    {"connect", HostAction::ConnectAgain},
    {"connect-directly", HostAction::ConnectDirectly},
    {"write", HostAction::Write},
    {"deleteLater", HostAction::DeleteLater},
    {"delete", HostAction::Delete},
    {"setSocket", HostAction::SetSocket},
    {"waitForReadyRead", HostAction::WaitForReadyRead},
    {"waitForBytesWritten", HostAction::WaitForBytesWritten},
    {"nothing", HostAction::Nothing},
};

// What the peer does while a host has a dialog open.
const struct
{
    const char* name;
    PeerDeed deed;
} dialogDeeds[] = {
    {"nothing", PeerDeed::Nothing},
    {"data", PeerDeed::Write},
    {"goodbye", PeerDeed::CloseNotify},
    {"the end", PeerDeed::HangUp},
};

// How long a wait may take in which the peer, who is of the same thread, can do nothing.
constexpr int WAIT_MSECS = 10;

const char* const connectionNames[] = {"functor",     "own functor",     "subclass slot", "slot",
                                       "queued slot", "relayed functor", "nested loop"};

//! One row of the matrix while it runs.
class Row
{
public:
    Row(Role role, const HostSignal& signal, HostAction action, HostConnection connection,
        PeerDeed dialogDeed = PeerDeed::Nothing)
        : m_signal(signal)
        , m_action(action)
        , m_dialogDeed(dialogDeed)
        , m_conversation(role)
        , m_log(new EmissionLog(m_conversation.socket()))
        , m_socket(m_conversation.socket())
        , m_actor(m_conversation, signal, connection, [this] { act(); })
    {
        m_actor.onDialog = [this] {
            if (m_conversation.peer())
                m_conversation.doNow(m_dialogDeed);
        };
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
    PeerDeed m_dialogDeed;
    HostConversation m_conversation;
    std::unique_ptr<EmissionLog> m_log;
    QPointer<SslSocket> m_socket;
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
    case HostAction::AbortAndConnect:
    case HostAction::ConnectAgain:
    case HostAction::ConnectDirectly:
    case HostAction::SetSocket:
        checkReplaced();
        break;
    case HostAction::Write:
    case HostAction::WaitForReadyRead:
    case HostAction::WaitForBytesWritten:
    case HostAction::Nothing:
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
    case HostAction::AbortAndConnect:
        m_socket->abort();
        connectAgain();
        break;
    case HostAction::ConnectAgain:
        connectAgain();
        break;
    case HostAction::ConnectDirectly:
        m_socket->disconnectFromHost();
        m_conversation.takeProxyAway();
        connectAgain();
        break;
    case HostAction::Nothing:
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
        m_socket->waitForReadyRead(WAIT_MSECS);
        break;
    case HostAction::WaitForBytesWritten:
        m_socket->waitForBytesWritten(WAIT_MSECS);
        break;
    }
}

void Row::connectAgain()
{
    const bool unconnected = m_socket->state() == QAbstractSocket::UnconnectedState;
    // A tunnel may be asked for at any time, a direct connection only when there is none.
    const bool tunnels =
        m_conversation.role() == Role::ProxiedClient && m_action != HostAction::ConnectDirectly;
    m_newConnection = tunnels || (m_conversation.role() != Role::Server && unconnected);
    m_log->emissions.clear();
    // While there is a direct connection it warns and does nothing else.
    m_conversation.connectOut();
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
    if (m_action != HostAction::Disconnect)
        QVERIFY(!m_socket->isOpen());
}

void Row::checkContinued()
{
    // Waiting for data includes waiting for the connection, and a wait in vain gives that up.
    const bool gaveUp =
        m_signal.audience == Audience::DirectClients && m_action == HostAction::WaitForReadyRead;
    const bool peerLeft = m_dialogDeed == PeerDeed::CloseNotify || m_dialogDeed == PeerDeed::HangUp;
    if (m_signal.endsConnection || gaveUp || peerLeft) {
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
    using D = PeerDeed;
    using A = Audience;
    const char* const readyRead = SIGNAL(readyRead());
    const char* const connected = SIGNAL(connected());
    const char* const disconnected = SIGNAL(disconnected());
    const char* const written = SIGNAL(bytesWritten(qint64));
    const char* const stateChanged = SIGNAL(stateChanged(QAbstractSocket::SocketState));
    const char* const error = SIGNAL(error(QAbstractSocket::SocketError));
    const char* const errorOccurred = SIGNAL(errorOccurred(QAbstractSocket::SocketError));
    const char* const verdict = SIGNAL(connectionVerificationDone(vela::CertVerify,bool,QString));
    const char* const tunnel = SIGNAL(tunnelEstablished());
    static const std::vector<HostSignal> table = {
        {"readyRead", readyRead, -1, D::Write, A::Everyone, false},
        {"connected", connected, -1, D::Nothing, A::Everyone, false},
        {"disconnected", disconnected, -1, D::HangUp, A::Everyone, true},
        {"disconnected by close-notify", disconnected, -1, D::CloseNotify, A::Everyone, true},
        {"error of the transport", error, -1, D::HangUp, A::Everyone, true},
        {"error of TLS", error, -1, D::Garbage, A::Everyone, true},
        {"errorOccurred of the transport", errorOccurred, -1, D::HangUp, A::Everyone, true},
        {"errorOccurred of TLS", errorOccurred, -1, D::Garbage, A::Everyone, true},
        {"HostLookupState", stateChanged, S::HostLookupState, D::Nothing, A::DirectClients, false},
        {"ConnectingState", stateChanged, S::ConnectingState, D::Nothing, A::DirectClients, false},
        {"ConnectedState", stateChanged, S::ConnectedState, D::Nothing, A::Everyone, false},
        {"ClosingState", stateChanged, S::ClosingState, D::HangUp, A::Everyone, true},
        {"ClosingState by close-notify", stateChanged, S::ClosingState, D::CloseNotify, A::Everyone,
         true},
        {"UnconnectedState", stateChanged, S::UnconnectedState, D::HangUp, A::Everyone, true},
        {"bytesWritten", written, -1, D::ReadMuch, A::Everyone, false},
        {"connectionVerificationDone", verdict, -1, D::Nothing, A::Everyone, false},
        {"tunnelEstablished", tunnel, -1, D::Nothing, A::ProxiedClients, false},
        {"error of a refusal", error, -1, D::Refuse, A::ProxiedClients, true},
        {"error of the tunnel", error, -1, D::HangUpOnRequest, A::ProxiedClients, true},
        {"errorOccurred of a refusal", errorOccurred, -1, D::Refuse, A::ProxiedClients, true},
        {"errorOccurred of the tunnel", errorOccurred, -1, D::HangUpOnRequest, A::ProxiedClients,
         true},
    };
    return table;
}

namespace {

const struct
{
    const char* name;
    Role role;
    Audience audience;
} roles[] = {
    {"client", Role::Client, Audience::DirectClients},
    {"server", Role::Server, Audience::Everyone},
    {"proxied client", Role::ProxiedClient, Audience::ProxiedClients},
};

} // namespace

namespace {

bool concerns(HostAction action, Role role)
{
    return action != HostAction::ConnectDirectly || role == Role::ProxiedClient;
}

const char* nameOf(HostAction action)
{
    const auto* const named =
        std::find_if(std::begin(hostActions), std::end(hostActions),
                     [action](const auto& row) { return row.action == action; });
    return named->name;
}

bool contains(const std::vector<PeerDeed>& deeds, PeerDeed deed)
{
    return std::find(deeds.begin(), deeds.end(), deed) != deeds.end();
}

} // namespace

void addHostActionRows(const std::vector<HostConnection>& connections)
{
    QTest::addColumn<test::Role>("role");
    QTest::addColumn<const test::HostSignal*>("signal");
    QTest::addColumn<test::HostAction>("action");
    QTest::addColumn<test::HostConnection>("connection");
    for (const HostConnection connection : connections) {
        for (const auto& role : roles) {
            for (const HostSignal& signal : hostSignals()) {
                if (signal.audience != Audience::Everyone && signal.audience != role.audience)
                    continue;
                for (const auto& action : hostActions) {
                    if (!concerns(action.action, role.role))
                        continue;
                    QTest::addRow("%s, %s, %s, %s", role.name, signal.name, action.name,
                                  connectionNames[static_cast<int>(connection)])
                        << role.role << &signal << action.action << connection;
                }
            }
        }
    }
}

void runHostActionRow()
{
    QFETCH(test::Role, role);
    QFETCH(const test::HostSignal*, signal);
    QFETCH(test::HostAction, action);
    QFETCH(test::HostConnection, connection);
    static Bystanders bystanders;
    {
        Row row(role, *signal, action, connection);
        row.run();
    }
    QVERIFY(bystanders.stillExchange());
}

void addHostDialogRows(const std::vector<HostAction>& actions, const std::vector<PeerDeed>& deeds)
{
    QTest::addColumn<test::Role>("role");
    QTest::addColumn<const test::HostSignal*>("signal");
    QTest::addColumn<test::HostAction>("action");
    QTest::addColumn<test::PeerDeed>("deed");
    const int sample = std::max(1, qEnvironmentVariableIntValue("FERRULE_SAMPLE"));
    int combination = 0;
    for (const auto& role : roles) {
        for (const HostSignal& signal : hostSignals()) {
            if (signal.audience != Audience::Everyone && signal.audience != role.audience)
                continue;
            for (const HostAction action : actions) {
                for (const auto& deed : dialogDeeds) {
                    if (!concerns(action, role.role) || !contains(deeds, deed.deed))
                        continue;
                    if (++combination % sample != 0)
                        continue;
                    QTest::addRow("%s, %s, %s, meanwhile %s", role.name, signal.name,
                                  nameOf(action), deed.name)
                        << role.role << &signal << action << deed.deed;
                }
            }
        }
    }
}

void runHostDialogRow()
{
    QFETCH(test::Role, role);
    QFETCH(const test::HostSignal*, signal);
    QFETCH(test::HostAction, action);
    QFETCH(test::PeerDeed, deed);
    static Bystanders bystanders;
    bool given = false;
    const int rounds = qEnvironmentVariableIntValue("FERRULE_ROUNDS", &given);
    for (int round = 0; round < (given ? rounds : 1) && !QTest::currentTestFailed(); ++round) {
        Row row(role, *signal, action, HostConnection::Dialog, deed);
        row.run();
    }
    QVERIFY(bystanders.stillExchange());
}

} // namespace test
