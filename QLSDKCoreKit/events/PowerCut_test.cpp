// What a power cut leaves of an upload queue's file. The file operations of a run are recorded; then, for a
// cut behind each of them, every file that may be under the name is made and read: with each subset of the
// pages that were not flushed lost, and each subset of the name changes done in each order.

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <numeric>
#include <set>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "QLSDKCoreKit/control/Durability.h"
#include "QLSDKCoreKit/events/internal/UploadQueue_test.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"

namespace {

using qlsdk::Data;

constexpr std::size_t kPage = 4096;

struct Operation {
    enum class Kind { write, cut, exchange, rename, remove, flush, flushDirectory, settled } kind;
    ino_t file = 0;
    /// Where the file is not known yet, its name.
    std::string name{};
    std::string otherName{};
    /// Of a write: all that the file then holds. Of a change of names: what is under the name of the queue's
    /// file.
    Data content{};
    bool isInPlace = false;
};

/// What was done below a directory, in order. The library's own calls come here.
struct Recording {
    std::string directory;
    std::vector<Operation> operations;
    std::map<ino_t, Data> contents;

    static Recording*& current() {
        static Recording* recording = nullptr;
        return recording;
    }
    [[nodiscard]] bool holds(const std::string& name) const { return name.rfind(directory, 0) == 0; }
};

std::string nameOf(int descriptor) {
    char name[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = ::readlink(link.c_str(), name, sizeof name);
    return {name, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

void noteContent(int descriptor, Operation::Kind kind, const std::function<void(Data&)>& change) {
    Recording* const recording = Recording::current();
    struct stat status;
    if (recording == nullptr || ::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return;
    const std::string name = nameOf(descriptor);
    if (!recording->holds(name)) return;
    Data& content = recording->contents[status.st_ino];
    change(content);
    recording->operations.push_back({kind, status.st_ino, name, {}, content});
}

void noteNames(Operation::Kind kind, const char* name, const char* otherName = "") {
    Recording* const recording = Recording::current();
    if (recording == nullptr || !recording->holds(name)) return;
    Operation& operation = recording->operations.emplace_back(Operation{kind, 0, name, otherName});
    struct stat status;
    // What has come to its name; a spare goes under its own.
    operation.isInPlace = kind != Operation::Kind::remove && ::lstat(otherName, &status) == 0;
    if (operation.isInPlace) operation.content = recording->contents[status.st_ino];
}

void noteFlush(int descriptor) {
    Recording* const recording = Recording::current();
    struct stat status;
    if (recording == nullptr || ::fstat(descriptor, &status) != 0) return;
    const std::string name = nameOf(descriptor);
    if (S_ISDIR(status.st_mode) && name + "/" == recording->directory)
        recording->operations.push_back({Operation::Kind::flushDirectory});
    if (S_ISREG(status.st_mode) && recording->holds(name))
        recording->operations.push_back({Operation::Kind::flush, status.st_ino});
}

/// When not 0, why the disk takes nothing.
int refusedBecause = 0;

int outcome(long result) {
    return static_cast<int>(result);
}

}  // namespace

extern "C" {

ssize_t pwritev(int descriptor, const struct iovec* pieces, int count, off_t offset) {
    if (refusedBecause != 0) {
        errno = refusedBecause;
        return -1;
    }
    const ssize_t written = ::syscall(SYS_pwritev, descriptor, pieces, count, offset, 0);
    noteContent(descriptor, Operation::Kind::write, [&](Data& content) {
        auto at = static_cast<std::size_t>(offset);
        auto left = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
        content.resize(std::max(content.size(), at + left));
        for (int i = 0; i < count && left > 0; ++i) {
            const std::size_t size = std::min(left, pieces[i].iov_len);
            const auto* bytes = static_cast<const std::uint8_t*>(pieces[i].iov_base);
            std::copy_n(bytes, size, content.begin() + static_cast<std::ptrdiff_t>(at));
            at += size;
            left -= size;
        }
    });
    return written;
}

int ftruncate(int descriptor, off_t size) noexcept {
    const int result = outcome(::syscall(SYS_ftruncate, descriptor, size));
    noteContent(descriptor, Operation::Kind::cut,
                [size](Data& content) { content.resize(static_cast<std::size_t>(size)); });
    return result;
}

int renameat2(int from, const char* name, int to, const char* otherName, unsigned flags) noexcept {
    const int result = outcome(::syscall(SYS_renameat2, from, name, to, otherName, flags));
    if (result == 0) noteNames(Operation::Kind::exchange, name, otherName);
    return result;
}

int rename(const char* name, const char* otherName) noexcept {
    const int result = outcome(::syscall(SYS_renameat2, AT_FDCWD, name, AT_FDCWD, otherName, 0));
    if (result == 0) noteNames(Operation::Kind::rename, name, otherName);
    return result;
}

int unlink(const char* name) noexcept {
    const int result = outcome(::syscall(SYS_unlinkat, AT_FDCWD, name, 0));
    if (result == 0) noteNames(Operation::Kind::remove, name);
    return result;
}

int fdatasync(int descriptor) {
    noteFlush(descriptor);
    return 0;
}

int fsync(int descriptor) {
    noteFlush(descriptor);
    return 0;
}
}

namespace qlsdk {
namespace {

enum class Checksum { read, ignored };

/// What a file's content says: the list, or why it says nothing.
std::string reading(Data content, Checksum checksum) {
    static const platform::testing::TemporaryDirectories scratch;
    const std::string path = scratch.path() + "/state";
    // Nothing refers to the object; without its mark it is none.
    if (checksum == Checksum::ignored && content.size() > 9) content[9] = 0;
    static const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(::pwrite(file, content.data(), content.size(), 0), static_cast<ssize_t>(content.size()));
    EXPECT_EQ(::ftruncate(file, static_cast<off_t>(content.size())), 0);
    const ArchiveReading found = queueArchiveReading(path);
    switch (found.outcome) {
        case ArchiveOutcome::absent:
            return "absent";
        case ArchiveOutcome::damaged:
            return "damaged";
        case ArchiveOutcome::unreadable:
            return "unreadable";
        case ArchiveOutcome::read:
            break;
    }
    std::string text = std::to_string(found.archive.maxSequenceId);
    for (const auto& element : found.archive.unsentEvents) {
        const auto record = eventWrapperOf(element);
        const auto event = record != nullptr ? record->event() : nullptr;
        text += " " + (event == nullptr ? "?" : std::to_string(record->sequenceId())) +
                (record != nullptr && record->isRetry() ? "r" : "");
        if (event == nullptr) continue;
        const DataView bytes(event->ctx()->buffer, event->ctx()->length);
        text += ":" + std::to_string(std::accumulate(bytes.begin(), bytes.end(), 1ULL,
                                                     [](auto sum, auto byte) { return 31 * sum + byte; }));
    }
    return text;
}

/// A file system that has lost power: what it had flushed is there, of the rest anything may be.
class Disk {
  public:
    explicit Disk(std::string name) : name_(std::move(name)) {}
    /// A file from before.
    void start(ino_t file, const Data& content) {
        names_[name_] = file;
        versions_[file] = {content};
        revisions_[file] = 0;
    }

    void apply(const Operation& operation) {
        if (operation.file != 0) ++revisions_[operation.file];
        switch (operation.kind) {
            case Operation::Kind::write:
            case Operation::Kind::cut: {
                if (versions_[operation.file].empty()) {
                    versions_[operation.file].emplace_back();
                    changes_.push_back(operation);
                }
                auto& versions = versions_[operation.file];
                // A file that was emptied gets other blocks: what was in the old ones does not come back.
                const bool isEmptied = operation.content.empty() && !versions.back().empty();
                if (isEmptied) emptied_[operation.file] = versions;
                if (isEmptied) versions.clear();
                versions.push_back(operation.content);
                break;
            }
            case Operation::Kind::flush:
                emptied_.erase(operation.file);
                versions_[operation.file] = {versions_[operation.file].back()};
                break;
            case Operation::Kind::flushDirectory:
                for (const Operation& change : changes_) rename(names_, change);
                changes_.clear();
                break;
            case Operation::Kind::settled:
                break;
            default:
                changes_.push_back(operation);
        }
    }

    /// Each content that a file may have, and some of them more than once.
    [[nodiscard]] std::vector<Data> contents(ino_t file) const {
        std::vector<Data> all;
        addContents(versions_.at(file), all);
        if (const auto before = emptied_.find(file); before != emptied_.end()) {
            addContents(before->second, all);
        }
        return all;
    }
    /// Changes with the content.
    [[nodiscard]] std::size_t revision(ino_t file) const { return revisions_.at(file); }

    /// What the name may lead to, by every subset of the changes of names in every order; 0 is nothing. The
    /// older ones of many have long been done.
    [[nodiscard]] std::set<ino_t> filesOfTheName() const {
        constexpr std::size_t kMostLost = 5;
        Names before = names_;
        std::vector<std::size_t> order;
        for (std::size_t i = 0; i < changes_.size(); ++i) {
            if (changes_.size() - i > kMostLost) {
                rename(before, changes_[i]);
            } else {
                order.push_back(i);
            }
        }
        std::set<ino_t> files;
        const std::size_t recent = order.size();
        do {
            for (std::size_t kept = 0; kept <= recent; ++kept) {
                Names names = before;
                for (std::size_t i = 0; i < kept; ++i) rename(names, changes_[order[i]]);
                files.insert(names.count(name_) != 0 ? names[name_] : 0);
            }
        } while (std::next_permutation(order.begin(), order.end()));
        return files;
    }

  private:
    using Names = std::map<std::string, ino_t>;

    static void rename(Names& names, const Operation& change) {
        const auto from = names.find(change.name);
        switch (change.kind) {
            case Operation::Kind::exchange:
                if (from != names.end() && names.count(change.otherName) != 0)
                    std::swap(from->second, names[change.otherName]);
                break;
            case Operation::Kind::rename:
                if (from == names.end()) break;
                names[change.otherName] = from->second;
                names.erase(change.name);
                break;
            case Operation::Kind::remove:
                names.erase(change.name);
                break;
            default:
                names.emplace(change.name, change.file);
        }
    }

    /// The last version, and each earlier one in the place of any of its pages and of its size.
    static void addContents(const std::vector<Data>& versions, std::vector<Data>& all) {
        const Data& last = versions.back();
        all.push_back(last);
        for (std::size_t i = 0; i + 1 < versions.size(); ++i) {
            const std::size_t size = std::max(versions[i].size(), last.size());
            Data older = versions[i];
            Data newer = last;
            older.resize(size);
            newer.resize(size);
            std::vector<std::size_t> differing;
            for (std::size_t at = 0; at < size; at += kPage) {
                const std::size_t end = std::min(at + kPage, size);
                if (!std::equal(older.begin() + at, older.begin() + end, newer.begin() + at))
                    differing.push_back(at);
            }
            ASSERT_LE(differing.size(), 12U);
            for (std::size_t lost = 0; lost < std::size_t{1} << differing.size(); ++lost) {
                Data mixed = newer;
                for (std::size_t page = 0; page < differing.size(); ++page) {
                    const std::size_t at = differing[page];
                    if ((lost >> page & 1) == 0) continue;
                    std::copy(older.begin() + at, older.begin() + std::min(at + kPage, size),
                              mixed.begin() + at);
                }
                all.push_back(mixed);
                all.back().resize(last.size());
                if (versions[i].size() == last.size()) continue;
                all.push_back(mixed);
                all.back().resize(versions[i].size());
            }
        }
    }

    const std::string name_;
    Names names_;
    std::vector<Operation> changes_;
    std::map<ino_t, std::vector<Data>> versions_;
    std::map<ino_t, std::size_t> revisions_;
    /// What files held before they were emptied.
    std::map<ino_t, std::vector<Data>> emptied_;
};

struct Findings {
    std::size_t states = 0;
    std::size_t damaged = 0;
    /// Lists that were never the queue's.
    std::size_t mixtures = 0;
    /// Neither what the file said when the queue rested last, nor what it said since.
    std::size_t stale = 0;
    std::size_t largest = 0;
};

class PowerCut : public UploadQueueTest {
  protected:
    std::shared_ptr<EncodablePicoproto> bigEvent() {
        Data bytes(eventBytes);
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>((seed_ = seed_ * 1103515245 + 12345) >> 16);
        return std::make_shared<EncodablePicoproto>(
            picoproto_new_from_bytes("Event", bytes.data(), bytes.size()));
    }
    void settle() {
        run();
        recording_.operations.push_back({Operation::Kind::settled});
    }
    void pushBig(int count) {
        for (int i = 0; i < count; ++i) queue->pushEvent(bigEvent());
        settle();
    }
    // As a version without checksums has left it.
    void leaveOldFile(std::uint64_t count) {
        EventList records;
        for (std::uint64_t id = count; id > 0; --id) {
            records.emplace_back(
                std::shared_ptr<platform::Archivable>(std::make_shared<EventWrapper>(id, bigEvent())));
        }
        oldFile_ = platform::archiveRootObject(
            platform::ArchivedObject(platform::ArchivedObject::Entries{
                {kQLSDKUnsentEventsKey, platform::ArchivedObject(records)},
                {kQLSDKMaxSequenceIdKey, Value(static_cast<std::int64_t>(count))}}),
            platform::RootClass::dictionary);
        ASSERT_TRUE(platform::replaceFile(path(), oldFile_));
    }

    /// Lists of one length and of different ones, with the same records and with others.
    void live(int count) {
        recording_.directory = fakes.directories->path() + "/";
        struct stat status {};
        if (::stat(path().c_str(), &status) == 0) recording_.contents[status.st_ino] = oldFile_;
        oldInode_ = status.st_ino;
        Recording::current() = &recording_;
        makeQueue(1'000'000);
        settle();
        pushBig(count);
        pushBig(1);
        flush();
        settle();
        answer(200);
        settle();
        pushBig(count);
        flush();
        settle();
        answer(503);
        settle();
        pushBig(3);
        Recording::current() = nullptr;
    }

    /// Stops when enough mixtures are found.
    [[nodiscard]] Findings explore(Checksum checksum) const {
        constexpr std::size_t kEnough = 100;
        const std::string before = oldFile_.empty() ? "absent" : reading(oldFile_, checksum);
        std::set<std::string> moments = momentsOfTheRun(checksum);
        moments.insert({before, "absent", "damaged"});
        Disk disk(path());
        if (!oldFile_.empty()) disk.start(oldInode_, oldFile_);
        std::set<std::string> current = {before};
        std::string last = before;
        std::map<std::pair<ino_t, std::size_t>, std::set<std::string>> known;
        Findings findings;
        for (const Operation& operation : recording_.operations) {
            disk.apply(operation);
            if (operation.isInPlace) {
                last = reading(operation.content, checksum);
                current.insert(last);
            }
            // From here on nothing older may come back.
            if (operation.kind == Operation::Kind::settled) current = {last};
            for (const ino_t file : disk.filesOfTheName()) {
                if (file == 0) {
                    findings.stale += current.count("absent") == 0 ? 1 : 0;
                    continue;
                }
                const auto [texts, isNew] = known.try_emplace({file, disk.revision(file)});
                for (const Data& content : isNew ? disk.contents(file) : std::vector<Data>()) {
                    const std::string text = reading(content, checksum);
                    ++findings.states;
                    findings.damaged += text == "damaged" ? 1 : 0;
                    findings.mixtures += moments.count(text) == 0 ? 1 : 0;
                    findings.largest = std::max(findings.largest, content.size());
                    texts->second.insert(text);
                    if (findings.mixtures >= kEnough) return findings;
                }
                for (const std::string& text : texts->second) {
                    findings.stale += current.count(text) == 0 ? 1 : 0;
                }
            }
        }
        return findings;
    }

    std::size_t eventBytes = 600;

  private:
    [[nodiscard]] std::set<std::string> momentsOfTheRun(Checksum checksum) const {
        std::set<std::string> moments;
        for (const Operation& operation : recording_.operations) {
            if (operation.isInPlace) moments.insert(reading(operation.content, checksum));
        }
        return moments;
    }

    Recording recording_;
    Data oldFile_;
    ino_t oldInode_ = 0;
    std::uint32_t seed_ = 7;
};

TEST_F(PowerCut, LeavesAWholeListOrADamagedFile) {
    install();
    live(46);
    const Findings found = explore(Checksum::read);
    EXPECT_EQ(found.mixtures, 0U);
    EXPECT_GE(found.largest, 8 * kPage);
    EXPECT_GT(found.damaged, 500U) << "of " << found.states;
    EXPECT_GT(explore(Checksum::ignored).mixtures, 0U) << "which only the checksum betrays";
}

// Files of older versions have no checksum. Pages within an event betray nothing by themselves.
TEST_F(PowerCut, MixesNothingWithAFileThatHasNoChecksum) {
    install();
    eventBytes = 7000;
    leaveOldFile(3);
    live(1);
    const Findings found = explore(Checksum::read);
    EXPECT_EQ(found.mixtures, 0U);
    EXPECT_GE(found.largest, 8 * kPage);
    EXPECT_GT(found.damaged, 500U) << "of " << found.states;
}

TEST_F(PowerCut, CostsNothingThatWasWrittenWhereTheHostWantsThat) {
    platform::setDurability(platform::Durability::powerCut);
    install();
    leaveOldFile(3);
    live(46);
    const Findings found = explore(Checksum::ignored);
    EXPECT_GE(found.states, 8U);
    EXPECT_GE(found.largest, 8 * kPage);
    EXPECT_EQ(found.mixtures, 0U);
    EXPECT_EQ(found.damaged, 0U);
    EXPECT_EQ(found.stale, 0U);
}

using OwedWrite = UploadQueueTest;

TEST_F(OwedWrite, ThatTheDiskRefusesIsCountedOnceAndMadeWithTheNextChange) {
    install();
    makeQueue(1'000'000);
    push();
    refusedBecause = EIO;
    push(2);
    EXPECT_EQ(onDisk(), "1");
    EXPECT_EQ(count(platform::Delivery::lostToFailedWrite), 2U) << "of one write for both";
    refusedBecause = 0;
    push();
    EXPECT_EQ(onDisk(), "4 3 2 1");
    // What is sent must not be in the file when the next process starts.
    refusedBecause = EIO;
    flush();
    EXPECT_EQ(lastBody(), "4321");
    EXPECT_EQ(onDisk(), "none");
    refusedBecause = 0;
    answer(503);
    EXPECT_EQ(onDisk(), "1r 2r 3r 4r");
    EXPECT_EQ(count(platform::Delivery::lostToFailedWrite), 2U);
}

// On the operation queue itself, between a write and the next.
TEST_F(OwedWrite, HoldsWhatIsPushedByTheHostWhileItMakesABodyOrEndsAnUpload) {
    install();
    makeQueue(1'000'000);
    push();
    delegate->parsed = [this] { queue->pushEvent(event()); };
    delegate->takeOver();
    flush();
    EXPECT_EQ(delegate->bodies.back(), "1");
    EXPECT_EQ(onDisk(), "2");
    delegate->parsed = nullptr;
    ASSERT_EQ(delegate->completions.size(), 1U);
    const std::shared_ptr<platform::SerialQueue> hosts = fakes.queues->makeSerialQueue("host");
    hosts->async([this] {
        queue->pushEvent(event());
        delegate->completions[0](std::nullopt, 503, nullptr);
        queue->pushEvent(event());
    });
    run();
    EXPECT_EQ(onDisk(), "4 1r 3 2");
}

}  // namespace
}  // namespace qlsdk
