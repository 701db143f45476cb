// A file that appears under its name only when it is complete. Until `commit` the bytes go to a temporary
// file beside it, which is removed when the object goes without that.

#ifndef TALRTP_HOST_LOOPBACK_OUTPUTFILE_H
#define TALRTP_HOST_LOOPBACK_OUTPUTFILE_H

#include <fstream>
#include <string>

namespace talrtp::host {

class COutputFile {
public:
    // Throws CHostError when nothing can be written there. A file that is not a regular one, such as a pipe
    // or /dev/null, is written directly.
    explicit COutputFile(const std::string& path);
    ~COutputFile();
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    std::ostream& stream() { return m_stream; }

    // Where the bytes go for now, for programs that write by themselves.
    const std::string& temporaryPath() const { return m_temporaryPath; }

    // Gives the file its name. Throws CHostError when a byte could not be written.
    void commit();

private:
    void makeTemporary();

    std::string m_path;           // as the user wrote it
    std::string m_target;         // symbolic links resolved
    std::string m_temporaryPath;  // m_target when it is written directly
    bool m_isTemporary = false;
    std::ofstream m_stream;
};

}  // namespace talrtp::host

#endif  // TALRTP_HOST_LOOPBACK_OUTPUTFILE_H
