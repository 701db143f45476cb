// Draws figures with gnuplot.

#ifndef TALRTP_HOST_GNUPLOT_H
#define TALRTP_HOST_GNUPLOT_H

#include <string>

namespace talrtp::host {

// A text as gnuplot takes it: within single quotes, where a quote is doubled.
std::string quotedForGnuplot(const std::string& text);

// Runs gnuplot over commands that write an SVG or PNG image to `path`. Throws CHostError when there is no
// gnuplot or no whole image was written.
void drawWithGnuplot(const std::string& commands, const std::string& path);

}  // namespace talrtp::host

#endif  // TALRTP_HOST_GNUPLOT_H
