// Trace lines of the Reed-Solomon code for callers of its arithmetic: sessions log the refusal of a group as
// the exported operations do, from the same place.

#ifndef TALRTP_SRC_RSFECLINES_H
#define TALRTP_SRC_RSFECLINES_H

namespace talrtp {

// Log that the longest of several blocks is above MAX_PACKET_SIZE.
void reportTooLongToEncode(int maxSize);
void reportTooLongToDecode(int maxSize);

}  // namespace talrtp

#endif  // TALRTP_SRC_RSFECLINES_H
