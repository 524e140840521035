// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_TRUSTEDROOTS_H
#define FERRULE_TESTS_TRUSTEDROOTS_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QTemporaryDir>

namespace test {

QByteArray toPem(const QByteArray& der);

//! Writes the file at \a path in place, or makes it, with the directories that are missing.
void writeFile(const QString& path, const QByteArray& content);

/*! Sets or, with a null value, unsets environment variables, and puts them back when it goes. */
class Environment
{
public:
    Environment() = default;
    ~Environment();

    void set(const QByteArray& variable, const QByteArray& value);

private:
    Q_DISABLE_COPY(Environment)

    QMap<QByteArray, QByteArray> m_before;
};

/*!
    Takes the place of the machine's trusted roots while it lives: nothing is trusted at first, and
    the user has no roots of their own.
*/
class TrustedRoots
{
public:
    TrustedRoots();

    //! Puts another bundle in the place of the old one, as update tools do.
    void setBundle(const QByteArray& pem);
    void setRoots(const QList<QByteArray>& ders);

    QString path(const QString& name) const;
    QString bundlePath() const;
    QString userDirectory() const;
    Environment& environment() { return m_environment; }

private:
    QTemporaryDir m_directory;
    Environment m_environment;
};

} // namespace test

#endif
