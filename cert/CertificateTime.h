// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATETIME_H
#define FERRULE_CERTIFICATETIME_H

#include <QtCore/QDateTime>

#include <openssl/asn1.h>

namespace vela {

/*!
    Converts a certificate's validity time to seconds since 1970, 0 on failure.

    The wall clock of the certificate is taken for local time: in local time the result shows the
    digits of the certificate, in UTC it is shifted by the local zone's offset.
*/
qint64 certificateTime(const ASN1_TIME* time);

/*!
    Returns certificateTime() as a local `QDateTime`, dates before 1970 included. Those Qt shows in
    today's standard time of the zone, so that their digits may be off where the zone has changed.
*/
QDateTime certificateDateTime(const ASN1_TIME* time);

} // namespace vela

#endif
