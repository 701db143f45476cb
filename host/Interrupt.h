// Ctrl-C while a file is being written that has its name only when it is complete.

#ifndef TALRTP_HOST_INTERRUPT_H
#define TALRTP_HOST_INTERRUPT_H

namespace talrtp::host {

// From now on SIGINT and SIGTERM are noted, and the second one ends the program at once.
void catchInterrupt();

// Whether one of them arrived.
bool isInterrupted();

// Throws CHostError when one of them arrived.
void throwIfInterrupted();

}  // namespace talrtp::host

#endif  // TALRTP_HOST_INTERRUPT_H
