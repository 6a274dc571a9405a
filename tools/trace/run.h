// SPDX-License-Identifier: MIT
// Running a program under vek-record.
#ifndef VEKTRACE_RUN_H
#define VEKTRACE_RUN_H

#include <string>
#include <vector>

namespace vektrace {

/** A folder that exists as long as the object. */
class TemporaryFolder {
public:
    TemporaryFolder(); ///< below TMPDIR or /tmp; throws InputError
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::string &path() const { return path_; }

private:
    std::string path_;
};

/** Runs the program with vek-record, which writes the recording into `folder`, and waits for its
 *  end. HUP and TERM are passed on to it. `depth` 0 leaves the depth to vek-record.
 *  @return  its exit status as a shell shows it. Throws InputError if vek-record cannot be run */
int record(const std::string &folder, unsigned depth, const std::vector<std::string> &program);

} // namespace vektrace

#endif
