#pragma once

#include <QByteArray>

namespace bp {

/// Unpacks a deflate stream (RFC 1951) without ever making more than a given number of bytes, whatever the stream
/// claims.
/// @return false when the stream is malformed, ends early, or gives any other number of bytes
bool inflate(const QByteArray &packed, int unpackedSize, QByteArray &unpacked);

} // namespace bp
