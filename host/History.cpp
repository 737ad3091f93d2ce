#include "host/History.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/packages/FileDescriptor.h"
#include "platform/vo/Log.h"
#include "platform/vo/Printable.h"

namespace KR {

namespace {

namespace fs = std::filesystem;

const vo::Logger historyLog("History");

constexpr const char* kNoHistory = "none";

/// A new folder, which nobody else can read. std::system_error.
std::string makeFolder()
{
    std::string folder = (fs::temp_directory_path() / "nimbra-history-XXXXXX").string();
    if (!::mkdtemp(folder.data()))
        failWithErrno(folder);
    return folder;
}

bool isSame(const std::string& one, const std::string& other)
{
    std::error_code error;
    return fs::weakly_canonical(one, error) == fs::weakly_canonical(other, error);
}

}  // namespace

History::History(const std::string& file, std::shared_ptr<vo::Clock> clock, EventStream& events)
{
    RecordWriter::Options options{file, NIMBRA_VERSION};
    options.limits = {kBytes, kAge};
    try {
        if (file.empty()) {
            folder_ = makeFolder();
            options.path = folder_ + "/history.zst";
        }
    } catch (const std::system_error& e) {
        historyLog.warning("begin", std::string("the last hour is not kept: ") + e.what());
        return;
    }
    writer_ = std::make_unique<RecordWriter>(std::move(clock), options);
    writer_->follow(events);
}

History::~History()
{
    close();
    std::error_code error;
    if (!folder_.empty())
        fs::remove_all(folder_, error);
}

void History::close()
{
    if (writer_)
        writer_->close();
}

Option addHistory(const Command& command, std::string& file)
{
    return command.text("--history", file, "FILE",
                        "Where a live run keeps its last hour, compressed if it ends with .zst; "
                        "\"none\" for nowhere (default: a temporary file)");
}

std::unique_ptr<History> makeHistory(const std::string& file, const std::string& recording,
                                     EventStream& events)
{
    if (file == kNoHistory)
        return nullptr;
    if (!file.empty() && isSame(file, recording))
        throw UsageError("--history and --record both name '" + vo::printable(file) + "'");
    return std::make_unique<History>(file, vo::makeRealClock(), events);
}

}  // namespace KR
