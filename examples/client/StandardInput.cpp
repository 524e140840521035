// SPDX-License-Identifier: BSD-3-Clause
#include "client/StandardInput.h"

#include "common/Platform.h"

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

constexpr int PIECE_SIZE = 64 * 1024;

} // namespace

struct StandardInput::Shared
{
    std::mutex mutex;
    std::condition_variable changed;
    StandardInput* owner = nullptr; // Null once the object is gone.
    bool started = false;
    bool wanted = false;
};

StandardInput::StandardInput(QObject* parent)
    : QObject(parent)
    , m_shared(std::make_shared<Shared>())
{
    m_shared->owner = this;
}

StandardInput::~StandardInput()
{
    const std::lock_guard<std::mutex> lock(m_shared->mutex);
    m_shared->owner = nullptr;
    m_shared->changed.notify_one();
}

void StandardInput::readNext()
{
    const std::lock_guard<std::mutex> lock(m_shared->mutex);
    m_shared->wanted = true;
    m_shared->changed.notify_one();
    if (m_shared->started)
        return;
    m_shared->started = true;
    // Not joined: nothing portable wakes a thread that waits for a terminal or a pipe.
    std::thread(run, m_shared).detach();
}

void StandardInput::run(const std::shared_ptr<Shared>& shared)
{
    int count = 1;
    while (count > 0) {
        {
            std::unique_lock<std::mutex> lock(shared->mutex);
            shared->changed.wait(lock, [&] { return shared->wanted || !shared->owner; });
            if (!shared->owner)
                return;
            shared->wanted = false;
        }
        QByteArray data(PIECE_SIZE, Qt::Uninitialized);
        count = platform::readInput(data.data(), data.size());
        const int error = errno;
        data.truncate(qMax(0, count));

        const std::lock_guard<std::mutex> lock(shared->mutex);
        StandardInput* owner = shared->owner;
        if (!owner)
            return;
        QMetaObject::invokeMethod(
            owner, [=] { owner->deliver(data, count, error); }, Qt::QueuedConnection);
    }
}

void StandardInput::deliver(const QByteArray& data, int count, int error)
{
    if (count > 0)
        Q_EMIT arrived(data);
    else if (count == 0)
        Q_EMIT ended();
    else
        Q_EMIT failed(qt_error_string(error));
}
