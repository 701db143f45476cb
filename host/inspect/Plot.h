// Bitrate, loss and recovery of a stream over time, drawn by gnuplot.

#ifndef TALRTP_HOST_INSPECT_PLOT_H
#define TALRTP_HOST_INSPECT_PLOT_H

#include "inspect/Inspector.h"

#include <string>

namespace talrtp::host::inspect {

// Draws the main stream of the capture into the SVG file `path`. Throws CHostError when the capture has no
// H.264 stream or gnuplot fails.
void writeStreamPlot(const CInspector& inspector, const std::string& title, const std::string& path);

}  // namespace talrtp::host::inspect

#endif  // TALRTP_HOST_INSPECT_PLOT_H
