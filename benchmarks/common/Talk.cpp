// SPDX-License-Identifier: BSD-3-Clause
#include "Talk.h"

#include "Endpoint.h"
#include "Options.h"

#include <algorithm>

namespace bench {

namespace {

constexpr qint64 ROOM = 1024 * 1024;
constexpr int READ_SIZE = 64 * 1024;

} // namespace

void sendAll(QTcpSocket* end, int pieceSize, qint64 total)
{
    const QByteArray piece(pieceSize, 'x');
    const auto refill = [end, piece, left = total]() mutable {
        while (left > 0 && outstanding(end) < ROOM) {
            const qint64 size = std::min<qint64>(left, piece.size());
            if (end->write(piece.constData(), size) != size)
                fail(QStringLiteral("a socket took less than it was given"));
            left -= size;
        }
    };
    // One state, shared by the first call and all later ones.
    const auto shared = std::make_shared<std::function<void()>>(refill);
    whenSent(end, [shared] { (*shared)(); });
    (*shared)();
}

qint64 readAvailable(QTcpSocket* end)
{
    char buffer[READ_SIZE];
    qint64 read = 0;
    while (end->bytesAvailable() > 0) {
        const qint64 size = end->read(buffer, sizeof buffer);
        if (size <= 0)
            break;
        read += size;
    }
    return read;
}

} // namespace bench
