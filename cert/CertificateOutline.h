// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_CERTIFICATEOUTLINE_H
#define FERRULE_CERTIFICATEOUTLINE_H

#include <QtCore/QByteArray>

#include <optional>

namespace vela {

/*!
    What an encoded certificate looks like from outside: enough to know what decoding it would cost,
    for less than a hundredth of that.
*/
struct CertificateOutline
{
    //! More than a certificate with some thousand names has.
    static constexpr std::size_t MAX_ELEMENTS = 10000;

    std::size_t elements = 0; //!< Values in it, at all depths.
    std::size_t bytes = 0;    //!< Of the whole encoding.
    bool hasCurveKey = false;
    bool hasCurveParameters = false; //!< Its key is on a curve that it does not call by a name.
    bool hasCompressedPoint = false; //!< Half of its key has to be computed.

    /*!
        Returns nothing for what is no certificate by its outermost structure or that of its key,
       one octet too long or too short included. What gets an outline need not be a certificate
       either.
    */
    static std::optional<CertificateOutline> of(const QByteArray& der);

    //! Whether it is within what is decoded at all.
    bool isDecodable() const { return elements <= MAX_ELEMENTS && !hasCurveParameters; }
    //! What decoding it costs, in nanoseconds.
    qint64 cost() const;
    //! How much memory it takes when it is decoded, roughly.
    std::size_t footprint() const;
};

} // namespace vela

#endif
