// SPDX-License-Identifier: BSD-3-Clause
#include "socket/TransportSignal.h"

namespace vela {

namespace {

//! Lives as a child of the transport, so that the count is found again whoever asks for it.
class CountHolder : public QObject
{
public:
    using QObject::QObject;

    const TransportSignal::Count count = std::make_shared<int>(0);
};

} // namespace

TransportSignal::Count TransportSignal::countOf(QTcpSocket* transport)
{
    for (QObject* child : transport->children()) {
        if (const auto* holder = dynamic_cast<const CountHolder*>(child))
            return holder->count;
    }
    return (new CountHolder(transport))->count;
}

} // namespace vela
