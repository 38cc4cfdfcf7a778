// Listing runs in two threads. A reader thread walks the folders depth first, in the order their
// lines are printed, and reads each one (mostly time spent in the kernel); the calling thread
// groups the names of each listing and prints them (time spent in the process), so the two
// overlap.
//
// The reader hands listings over through ListingQueue. Its mutex guards the queued listings,
// the count of names they hold and the reader's end mark; neither thread holds it while reading
// or printing. The reader waits before reading a folder while the queue holds kQueuedListings
// listings or kQueuedNames names, so at most about two large listings exist at a time and memory
// does not grow with the tree. The printer, once it has emptied the queue, waits for a batch
// (kBatchListings listings, kBatchNames names, or the end) rather than for each folder, since
// waking for every small folder costs more than grouping it; a full queue is always a batch, so
// the two never wait for each other. Listings come out in the order they went in; the end mark
// is set once, after the last.
#include "VKSequenceListTool.h"

#include "Files/VKFileSequence.h"
#include "Files/VKFileSequenceExistence.h"
#include "Files/VKFileSize.h"
#include "Foundation/VKFileSystem.h"
#include "Foundation/VKNumericStringCompare.h"
#include "VKToolSupport.h"

#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kSizes = QStringLiteral("sizes");
const QString kRecursive = QStringLiteral("recursive");
const QString kCheck = QStringLiteral("check");
const QString kHelp = QStringLiteral("help");

// Folders with more entries than this show progress on a terminal.
constexpr qsizetype kProgressStep = 20000;

QString joined(const QString &folder, const QString &name)
{
    if (folder.isEmpty())
        return name;
    return folder.endsWith(u'/') ? folder + name : folder + u'/' + name;
}

// What the reader may queue before it waits for the printer.
constexpr qsizetype kQueuedNames = 1 << 16;
constexpr std::size_t kQueuedListings = 64;
// What wakes the printer once it has run out of listings.
constexpr qsizetype kBatchNames = 1 << 14;
constexpr std::size_t kBatchListings = 32;

struct Listing
{
    QString displayPath;
    // The file names, joined() with the folder they are printed as paths. They are views into
    // `text`, which holds them all one after the other: a folder of a million frames costs one
    // allocation instead of a million.
    QStringList names;
    std::vector<char16_t> text;
    QStringList folders; // subfolder paths, symbolic links to folders left out
    int error = 0;       // errno of a failed listing
};

// Appends a name read from the file system to `text`, as UTF-16.
void appendName(std::vector<char16_t> &text, const char *name,
                std::vector<std::pair<std::size_t, std::size_t>> &spans)
{
    const std::size_t offset = text.size();
    const std::size_t length = std::strlen(name);
    text.resize(offset + length);
    char16_t *out = text.data() + offset;
    std::size_t k = 0;
    for (; k < length && static_cast<unsigned char>(name[k]) < 0x80; ++k)
        out[k] = char16_t(name[k]);
    if (k < length) { // not ASCII: decoded as a whole
        text.resize(offset);
        const QString decoded = QString::fromUtf8(name);
        text.insert(text.end(), decoded.utf16(), decoded.utf16() + decoded.size());
    }
    spans.emplace_back(offset, text.size() - offset);
}

// Reads the entries of a folder straight into one large buffer: a few system calls per folder
// instead of one per 32 KB, and no copy of each entry.
Listing readFolder(const QString &displayPath, bool progress)
{
    Listing listing;
    listing.displayPath = displayPath;
    const QByteArray openPath = displayPath.isEmpty() ? QByteArray(".") : displayPath.toUtf8();
    const int dirFd = ::open(openPath.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) {
        listing.error = errno;
        return listing;
    }
    thread_local std::vector<char> entries(std::size_t(1) << 20);
    std::vector<std::pair<std::size_t, std::size_t>> nameSpans; // where each name lies in text
    qsizetype seen = 0;
    for (;;) {
        const ssize_t filled = ::getdents64(dirFd, entries.data(), entries.size());
        if (filled <= 0) {
            if (filled < 0)
                listing.error = errno;
            break;
        }
        for (ssize_t at = 0; at < filled;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries.data() + at);
            at += entry->d_reclen;
            const char *name = entry->d_name;
            // Hidden entries (".", "..", ".DS_Store", "._clip.mov") are not part of any listing.
            if (name[0] == '.')
                continue;
            bool isFile = entry->d_type == DT_REG;
            bool isFolder = entry->d_type == DT_DIR;
            if (entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
                struct stat st
                {
                };
                if (fstatat(dirFd, name, &st, 0) == 0) {
                    isFile = S_ISREG(st.st_mode);
                    // Linked folders are not followed: they could lead back up the tree.
                    isFolder = entry->d_type == DT_UNKNOWN && S_ISDIR(st.st_mode);
                }
            }
            if (isFile)
                appendName(listing.text, name, nameSpans);
            else if (isFolder)
                listing.folders.append(joined(displayPath, QString::fromUtf8(name)));
            if (progress && ++seen % kProgressStep == 0) {
                vkToolWrite(stderr,
                            QStringLiteral("\rvkseq: reading %1: %2 entries")
                                .arg(displayPath.isEmpty() ? QStringLiteral(".") : displayPath)
                                .arg(seen));
                std::fflush(stderr);
            }
        }
    }
    ::close(dirFd);
    listing.names.reserve(qsizetype(nameSpans.size()));
    for (const auto &[offset, length] : nameSpans)
        listing.names.append(QString::fromRawData(
            reinterpret_cast<const QChar *>(listing.text.data() + offset), qsizetype(length)));
    if (progress && seen >= kProgressStep) {
        vkToolWrite(stderr, QStringLiteral("\r\x1b[K"));
        std::fflush(stderr);
    }
    return listing;
}

class ListingQueue
{
public:
    // Reader: waits while the printer has enough to do; false once the printer gave up.
    bool waitForRoom()
    {
        std::unique_lock lock(m_mutex);
        m_taken.wait(lock, [this] {
            return m_abandoned || (m_names < kQueuedNames && m_listings.size() < kQueuedListings);
        });
        return !m_abandoned;
    }

    // Printer: it takes nothing more (it is leaving with an exception); the reader stops.
    void abandon()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_abandoned = true;
        }
        m_taken.notify_one();
    }

    void push(Listing listing)
    {
        bool batch = false;
        {
            const std::lock_guard lock(m_mutex);
            m_names += listing.names.size();
            m_listings.push_back(std::move(listing));
            batch = isBatch();
        }
        if (batch)
            m_added.notify_one();
    }

    // Reader: nothing follows.
    void finish()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_finished = true;
        }
        m_added.notify_one();
    }

    // Printer: the next listing, or none after the last.
    std::optional<Listing> take()
    {
        std::unique_lock lock(m_mutex);
        if (m_listings.empty())
            m_added.wait(lock, [this] { return isBatch() || m_finished; });
        if (m_listings.empty())
            return std::nullopt;
        Listing listing = std::move(m_listings.front());
        m_listings.pop_front();
        m_names -= listing.names.size();
        lock.unlock();
        m_taken.notify_one();
        return listing;
    }

private:
    // Called with the mutex held.
    bool isBatch() const { return m_names >= kBatchNames || m_listings.size() >= kBatchListings; }

    std::mutex m_mutex;
    std::condition_variable m_added;
    std::condition_variable m_taken;
    std::deque<Listing> m_listings;
    qsizetype m_names = 0;
    bool m_finished = false;
    bool m_abandoned = false;
};

// Reads `displayPath` and, when recursive, its subfolders in sorted order after it; a folder
// that could not be read fully is not descended into.
void readTree(const QString &displayPath, bool recursive, bool progress, ListingQueue &queue)
{
    if (!queue.waitForRoom())
        return;
    Listing listing = readFolder(displayPath, progress);
    QStringList folders = std::move(listing.folders);
    const bool failed = listing.error != 0;
    queue.push(std::move(listing));
    if (!recursive || failed)
        return;
    VKNumericStringCompare::sort(folders);
    for (const QString &folder : std::as_const(folders))
        readTree(folder, true, progress, queue);
}

// Prints the runs of one folder, or why it could not be read; false for the latter.
bool printListing(const Listing &listing, bool sizes)
{
    const QString &displayPath = listing.displayPath;
    if (listing.error != 0) {
        vkToolWrite(stderr, QStringLiteral("vkseq: %1: %2\n")
                                .arg(displayPath.isEmpty() ? QStringLiteral(".") : displayPath,
                                     QString::fromLocal8Bit(std::strerror(listing.error))));
        return false;
    }

    // The names of one folder group as their paths would: the folder is a common beginning
    // that ends with "/", and frame numbers are read from the name alone.
    QList<qsizetype> order;
    const QList<qsizetype> runLengths = VKFileSequence::runLengthsWithFiles(listing.names, order);
    QString out;
    qsizetype position = 0;
    for (const qsizetype length : runLengths) {
        const QString &firstName = listing.names.at(order.at(position));
        if (length == 1 && !sizes &&
            VKFileSequence::frameNumberForFile(firstName) == VKFileSequence::notFound) {
            // A file without frame number (a side-car) is its own identifier.
            if (!displayPath.isEmpty()) {
                out += displayPath;
                if (!displayPath.endsWith(u'/'))
                    out += u'/';
            }
            out += firstName;
            out += u"\t1\n";
            ++position;
            continue;
        }
        // A sequence is made from its first and last members alone.
        const QString first = joined(displayPath, firstName);
        QStringList ends{first};
        if (length > 1)
            ends.append(joined(displayPath, listing.names.at(order.at(position + length - 1))));
        position += length;
        const std::shared_ptr<VKFileSequence> sequence =
            VKFileSequence::fileSequenceWithSequenceOfFiles(ends);
        if (!sequence)
            continue;
        out += sequence->identifier();
        out += u'\t';
        out += QString::number(length);
        if (sizes) {
            // A file without a frame number is measured directly; runs use the sampled total.
            const bool numbered =
                VKFileSequence::frameNumberForFile(first) != VKFileSequence::notFound;
            const qint64 bytes =
                numbered ? sequence->overallByteCount() : VKFileSystem::filesizeCFI(first);
            out += u'\t';
            out += VKFileSize::humanReadableFileSizeStringFromByteCount(
                static_cast<quint64>(qMax<qint64>(bytes, 0)));
        }
        out += u'\n';
    }
    vkToolWrite(stdout, out);
    return true;
}

} // namespace

std::shared_ptr<VKApplicationConfiguration> VKSequenceListTool::applicationConfiguration()
{
    VKApplicationOptionConfigurationList list;
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kSizes, QStringLiteral("s"), QStringLiteral("Add the total size of each sequence")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kRecursive, QStringLiteral("R"),
        QStringLiteral("Also list every subfolder, depth first, in sorted order")));
    list.append(VKApplicationParameterConfiguration::parameterConfigurationWithLongIdentifier(
        kCheck, QStringLiteral("c"),
        QStringLiteral("Print complete, partial or missing and exit 0, 1 or 2"),
        VKApplicationParameterTypeString, QStringLiteral("identifier")));
    list.append(VKApplicationOptionConfiguration::optionConfigurationWithLongIdentifier(
        kHelp, QStringLiteral("h"), QStringLiteral("Print this text")));
    return std::make_shared<VKApplicationConfiguration>(
        QStringLiteral("usage: vkseq [options] [PATH ...]\n\n"
                       "Lists the numbered file sequences in each folder (default: the current "
                       "folder), one line\nper sequence: its identifier, a tab and the number "
                       "of files. A file without a frame\nnumber is a line of its own. Names "
                       "starting with \".\" are skipped."),
        QStringLiteral("EXAMPLES\n"
                       "\tvkseq shots/A                 shots/A/clip_1-100####.dpx\t100\n"
                       "\tvkseq -s shots/A              adds the size, such as 1.2 GB\n"
                       "\tvkseq -c 'shots/A/clip_1-100####.dpx'\n\n"
                       "EXIT STATUS\n"
                       "\t0 success; 1 a path could not be listed. With --check: 0 complete, 1 "
                       "partial,\n\t2 missing, 3 the identifier could not be checked."),
        list);
}

bool VKSequenceListTool::listFolder(const QStringList &paths, bool recursive, bool sizes)
{
    ListingQueue queue;
    // An exception on either side reaches the caller once both threads are done with the queue.
    std::exception_ptr readFailure;
    std::thread reader([&paths, recursive, &queue, &readFailure, progress = m_progress] {
        try {
            for (const QString &path : paths)
                readTree(path, recursive, progress, queue);
        } catch (...) {
            readFailure = std::current_exception();
        }
        queue.finish();
    });
    bool ok = true;
    try {
        while (std::optional<Listing> listing = queue.take())
            ok = printListing(*listing, sizes) && ok;
    } catch (...) {
        queue.abandon();
        reader.join();
        throw;
    }
    reader.join();
    if (readFailure)
        std::rethrow_exception(readFailure);
    return ok;
}

int VKSequenceListTool::check(const QString &identifier)
{
    // A bare identifier names members of the current folder.
    const QString located =
        identifier.contains(u'/') ? identifier : QStringLiteral("./") + identifier;
    VKError error;
    const std::optional<VKFileSequencePresence> presence =
        VKFileSequenceExistence::presenceOfFileSequenceWithIdentifier(located, &error);
    if (!presence) {
        vkToolWrite(
            stderr,
            QStringLiteral("vkseq: %1: %2\n").arg(identifier, error.localizedDescription()));
        return 3;
    }
    vkToolWrite(stdout, presence->stateName() + u'\n');
    switch (presence->state) {
    case VKFileSequencePresence::Complete:
        return 0;
    case VKFileSequencePresence::Partial:
        return 1;
    case VKFileSequencePresence::Missing:
        break;
    }
    return 2;
}

void VKSequenceListTool::application(VKApplication &application,
                                     const std::shared_ptr<VKApplicationArguments> &arguments)
{
    const auto finish = [&application](int code) { vkToolFinish(application, code); };
    const QStringList options = arguments->options();
    if (options.contains(kHelp)) {
        application.printUsage();
        finish(0);
        return;
    }
    const QVariantMap parameters = arguments->parameters();
    if (parameters.contains(kCheck)) {
        finish(check(parameters.value(kCheck).toString()));
        return;
    }

    m_progress = isatty(STDERR_FILENO) == 1;
    const bool recursive = options.contains(kRecursive);
    const bool sizes = options.contains(kSizes);
    QStringList paths = arguments->arguments();
    if (paths.isEmpty())
        paths.append(QString());
    finish(listFolder(paths, recursive, sizes) ? 0 : 1);
}
