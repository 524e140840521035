// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_WORKBUDGET_H
#define FERRULE_WORKBUDGET_H

#include <QtCore/qglobal.h>

namespace vela {

/*!
    What work may cost, and has cost so far, in nanoseconds of an ordinary processor as estimated
    beforehand from sizes. Nothing is measured, so that the same question always gets as far.
*/
class WorkBudget
{
public:
    explicit WorkBudget(qint64 limit)
        : m_limit(limit)
    {
    }

    //! Returns false, now and from then on, when there is not enough left for \a cost.
    bool spend(qint64 cost)
    {
        if (m_isExhausted || cost > m_limit - m_spent) {
            m_isExhausted = true;
            return false;
        }
        m_spent += cost;
        return true;
    }

    bool isExhausted() const { return m_isExhausted; }
    qint64 spent() const { return m_spent; }

private:
    qint64 m_limit;
    qint64 m_spent = 0;
    bool m_isExhausted = false;
};

} // namespace vela

#endif
