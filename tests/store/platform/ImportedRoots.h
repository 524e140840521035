// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_IMPORTEDROOTS_H
#define FERRULE_TESTS_IMPORTEDROOTS_H

#include "store/platform/CryptoApi.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>

namespace test {

/*!
    Takes roots of a test out of the user's "ROOT" store again, where the system has no environment
    variable that would show it another one; also when the program is aborted, as it is by what is
    fatal for a test. One at a time.
*/
class ImportedRoots
{
public:
    ImportedRoots();
    ~ImportedRoots();

    //! Removes what programs that were ended otherwise have left: all whose names hold \a text.
    static void removeLeftovers(const QByteArray& text);

    //! Whether the store holds \a der.
    static bool contains(const QByteArray& der);

    //! Removes \a der when the object goes.
    void expect(const QByteArray& der) { m_expected.append(der); }

private:
    Q_DISABLE_COPY(ImportedRoots)

    static void removeAndAbort(int signal);
    void remove();

    static ImportedRoots* current;
    QList<QByteArray> m_expected;
};

} // namespace test

#endif
