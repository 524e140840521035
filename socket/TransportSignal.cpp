// SPDX-License-Identifier: BSD-3-Clause
#include "socket/TransportSignal.h"

namespace vela {

namespace {

//! Lives as a child of the transport, so that the count is found again whoever asks for it.
class CountHolder : public QObject
{
public:
    using QObject::QObject;

    const TransportSignal::CountPtr count = std::make_shared<TransportSignal::Count>();
};

} // namespace

TransportSignal::CountPtr TransportSignal::countOf(QTcpSocket* transport)
{
    for (QObject* child : transport->children()) {
        if (const auto* holder = dynamic_cast<const CountHolder*>(child))
            return holder->count;
    }
    return (new CountHolder(transport))->count;
}

void TransportSignal::dismiss(QTcpSocket* transport)
{
    const CountPtr count = countOf(transport);
    if (!count->isHandling()) {
        transport->deleteLater();
        return;
    }
    transport->setParent(nullptr); // Which may be deleted before the signals have been handled.
    count->m_dismissed = transport;
}

TransportSignal::TransportSignal(CountPtr count)
    : m_count(std::move(count))
{
    ++m_count->m_handled;
}

TransportSignal::~TransportSignal()
{
    if (--m_count->m_handled == 0 && m_count->m_dismissed)
        m_count->m_dismissed->deleteLater();
}

} // namespace vela
