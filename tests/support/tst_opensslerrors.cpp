// SPDX-License-Identifier: BSD-3-Clause
#include "support/OpenSslErrors.h"

#include <QtTest/QtTest>

#include <openssl/err.h>
#include <openssl/ssl.h>

class OpenSslErrorsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oldestErrorIsTaken();
    void emptyErrorQueueHasATextToo();
    void clearedErrorsAreGone();
};

namespace {

// Leaves what OpenSSL leaves when a cipher list names no cipher.
void provokeError()
{
    SSL_CTX* context = SSL_CTX_new(SSLv23_method());
    SSL_CTX_set_cipher_list(context, "no such cipher");
    SSL_CTX_free(context);
}

QString textOf(unsigned long code)
{
    char text[256];
    ERR_error_string_n(code, text, sizeof text);
    return QString::fromLatin1(text);
}

} // namespace

void OpenSslErrorsTest::oldestErrorIsTaken()
{
    vela::clearOpenSslErrors();
    provokeError();
    BIO_free(BIO_new_file("/does/not/exist", "r"));
    const QString oldest = textOf(ERR_peek_error());
    QVERIFY(ERR_peek_error() != ERR_peek_last_error());
    QCOMPARE(vela::takeOpenSslError(), oldest);
    QVERIFY(textOf(ERR_peek_error()) != oldest);
    QVERIFY(oldest.contains(QStringLiteral("no cipher match")));
}

void OpenSslErrorsTest::emptyErrorQueueHasATextToo()
{
    vela::clearOpenSslErrors();
    QCOMPARE(vela::takeOpenSslError(), textOf(0));
}

void OpenSslErrorsTest::clearedErrorsAreGone()
{
    provokeError();
    QVERIFY(ERR_peek_error() != 0);
    vela::clearOpenSslErrors();
    QCOMPARE(ERR_peek_error(), 0UL);
}

QTEST_GUILESS_MAIN(OpenSslErrorsTest)
#include "tst_opensslerrors.moc"
