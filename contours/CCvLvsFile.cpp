// The contour lines' section of the host's document, laid out by the version the stream carries.
//
// From version 800: line count (int32); per line elevation, sigma, sigmap (doubles), colour,
// visible (int32 each; only 1 reads as visible), node count (int32), the nodes (x, y, xp, yp,
// len, doubles each, coefficients as kept), interval count (int32), the intervals (start, end as
// doubles, flags as int32); then direction (int32), minimum and maximum elevation (doubles).
//
// Before version 800: line count; per line elevation, sigma, sigmap, node count, then per node
// kind and label position (int16 each), x, y, xp, yp, len (doubles) and two int32 whose meaning
// is lost (read and ignored, written as 0). Such a section has no colour, visibility, intervals,
// direction or range: lines take colour 256 and are visible, label nodes (kind 2) become label
// intervals, and the direction and range are derived from the lines read.
//
// The reader is written for damaged and hostile files as much as for good ones: it stops at the
// first failed read, its arrays grow only as items arrive (a count never reserves memory), a
// negative count fails the stream, and the collection changes only once the whole section has
// been read. A section that ends early or lies about a count therefore leaves the stream failed
// and the collection exactly as it was. Values are taken as stored, NaN and infinities included,
// so that whatever was written comes back bit for bit.

#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/Events.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>

#include <cstdint>
#include <ios>
#include <istream>
#include <ostream>
#include <utility>
#include <vector>

namespace {

namespace io = dtm::io;

// Line records carry colour, visibility and intervals, and the section ends with the direction
// and the elevation range, from this version.
constexpr short kVersionCvLvRecords = 800;

// What a writer of the old layout puts in the two 16-bit fields of each node: a plain node
// (kind 1) and no label position. Labels are intervals now, which that layout cannot hold.
constexpr std::int16_t kOldPlainNodeKind = 1;
constexpr std::int16_t kOldNoLabelPosition = -1;
// The two trailing 32-bit fields of an old node record, written as 0 and ignored on reading.
constexpr std::int32_t kOldUnusedField = 0;
// The visibility field's value for a visible line; any other reads as hidden.
constexpr std::int32_t kVisible = 1;

bool HasCvLvRecords(short version) {
    return version >= kVersionCvLvRecords;
}

// Marks @p stream failed and answers false, for a section whose content is inconsistent: the
// stream's state is how the host learns that a section could not be read.
bool Fail(std::istream& stream) {
    stream.setstate(std::ios::failbit);
    return false;
}

// Reads a count; false, with the stream failed, when the stream ends or the count is negative.
bool ReadCount(std::istream& stream, std::int32_t& count) {
    if (!io::ReadRaw(stream, count)) return false;
    return count >= 0 || Fail(stream);
}

// One line record as the section stores it, in either layout.
struct TLineRecord {
    double quota = 0.0;
    double sigma = 0.0;
    double sigmap = 0.0;
    std::int32_t color = CCvLv::COLOR_BY_LAYER;
    bool visible = true;
    std::vector<TVrtPol> nodes;          // of the later layout
    std::vector<TCvLvInterv> intervals;  // of the later layout
    std::vector<TOldVrtPol> oldNodes;    // of the old layout
};

// The end of a section of the later layout.
struct TSectionTail {
    std::int32_t dir = 0;
    double minQuota = 0.0;
    double maxQuota = 0.0;
};

bool ReadNode(std::istream& stream, TVrtPol& node) {
    return io::ReadRaw(stream, node.x) && io::ReadRaw(stream, node.y) &&
           io::ReadRaw(stream, node.xp) && io::ReadRaw(stream, node.yp) &&
           io::ReadRaw(stream, node.len);
}

bool ReadOldNode(std::istream& stream, TOldVrtPol& node) {
    std::int32_t unused = 0;
    return io::ReadRaw(stream, node.kind) && io::ReadRaw(stream, node.position) &&
           io::ReadRaw(stream, node.x) && io::ReadRaw(stream, node.y) &&
           io::ReadRaw(stream, node.xp) && io::ReadRaw(stream, node.yp) &&
           io::ReadRaw(stream, node.len) && io::ReadRaw(stream, unused) &&
           io::ReadRaw(stream, unused);
}

bool ReadInterval(std::istream& stream, TCvLvInterv& interval) {
    return io::ReadRaw(stream, interval.start) && io::ReadRaw(stream, interval.end) &&
           io::ReadRaw(stream, interval.flags);
}

// Reads @p count items with @p readItem into @p items, which grows only as items arrive.
template <class Item, class ReadItem>
bool ReadItems(std::istream& stream, std::int32_t count, std::vector<Item>& items,
               ReadItem readItem) {
    for (std::int32_t i = 0; i < count; ++i) {
        Item item{};
        if (!readItem(stream, item)) return false;
        items.push_back(item);
    }
    return true;
}

// Reads one line record of the layout of @p version into @p record, which must be fresh.
// False, with the stream failed, when the stream ends first or a count is negative.
bool ReadLineRecord(std::istream& stream, short version, TLineRecord& record) {
    if (!io::ReadRaw(stream, record.quota) || !io::ReadRaw(stream, record.sigma) ||
        !io::ReadRaw(stream, record.sigmap))
        return false;
    std::int32_t count = 0;
    if (!HasCvLvRecords(version))
        return ReadCount(stream, count) && ReadItems(stream, count, record.oldNodes, ReadOldNode);

    std::int32_t visible = 0;
    if (!io::ReadRaw(stream, record.color) || !io::ReadRaw(stream, visible)) return false;
    record.visible = visible == kVisible;
    return ReadCount(stream, count) && ReadItems(stream, count, record.nodes, ReadNode) &&
           ReadCount(stream, count) && ReadItems(stream, count, record.intervals, ReadInterval);
}

bool ReadSectionTail(std::istream& stream, TSectionTail& tail) {
    return io::ReadRaw(stream, tail.dir) && io::ReadRaw(stream, tail.minQuota) &&
           io::ReadRaw(stream, tail.maxQuota);
}

void WriteLineRecord(std::ostream& stream, short version, const CCvLv& line) {
    io::WriteRaw(stream, line.GetQuota());
    io::WriteRaw(stream, line.GetSigma());
    io::WriteRaw(stream, line.GetSigmap());
    const std::vector<TVrtPol>& nodes = line.GetNodes();
    if (!HasCvLvRecords(version)) {
        io::WriteRaw(stream, static_cast<std::int32_t>(nodes.size()));
        for (const TVrtPol& node : nodes) {
            io::WriteRaw(stream, kOldPlainNodeKind);
            io::WriteRaw(stream, kOldNoLabelPosition);
            for (const double value : {node.x, node.y, node.xp, node.yp, node.len})
                io::WriteRaw(stream, value);
            io::WriteRaw(stream, kOldUnusedField);
            io::WriteRaw(stream, kOldUnusedField);
        }
        return;
    }
    io::WriteRaw(stream, line.GetColor());
    io::WriteBool32(stream, line.IsVisible());
    io::WriteRaw(stream, static_cast<std::int32_t>(nodes.size()));
    for (const TVrtPol& node : nodes) {
        for (const double value : {node.x, node.y, node.xp, node.yp, node.len})
            io::WriteRaw(stream, value);
    }
    io::WriteRaw(stream, static_cast<std::int32_t>(line.GetNoIntervals()));
    for (unsigned i = 0; i < line.GetNoIntervals(); ++i) {
        const CCvLvInterv* interval = line.GetIntervalAt(i);
        io::WriteRaw(stream, interval->GetStart());
        io::WriteRaw(stream, interval->GetEnd());
        io::WriteRaw(stream, interval->GetFlags());
    }
}

}  // namespace

void CCvLvs::SalvaInFile(ofpstream& stream) const {
    const short version = stream.GetVersion();
    io::WriteRaw(stream, static_cast<std::int32_t>(m_cvlvs.size()));
    for (const auto& line : m_cvlvs) WriteLineRecord(stream, version, *line);
    if (!HasCvLvRecords(version)) return;
    io::WriteRaw(stream, static_cast<std::int32_t>(m_dir));
    io::WriteRaw(stream, m_minQuota);
    io::WriteRaw(stream, m_maxQuota);
}

// The section is read whole before the collection changes: the lines are built as their records
// arrive but reach the collection only after the last byte, so that a section that ends early
// removes, adds and reports nothing. With load false each record is read and dropped at once,
// so that only one record is ever held. The removal of the present lines and the additions are
// one event: one undo step for the whole load.
void CCvLvs::LeggeDaFile(ifpstream& stream, bool load) {
    const short version = stream.GetVersion();
    // A line built from a record, not yet listed: it names this collection so that label
    // conversion and later changes reach the options and context, but is added only at the end.
    const auto makeLine = [this, version](TLineRecord& record) {
        auto line =
            kor::CRefPtr<CCvLv>::Adopt(new CCvLv(this, record.quota, record.sigma, record.color));
        if (HasCvLvRecords(version)) {
            line->DoSetSpline(record.sigma, record.sigmap, std::move(record.nodes));
            line->DoSetVisible(record.visible);
            line->DoReplaceIntervals(record.intervals);
        } else {
            // The conversion evaluates the curve with the stored sigmap, so it goes in first.
            line->DoSetSpline(record.sigma, record.sigmap, {});
            line->DoLoadOldNodes(record.oldNodes, m_opz.GetTextHeight(), m_opz.GetDecimals());
        }
        return line;
    };

    std::int32_t count = 0;
    if (!ReadCount(stream, count)) return;
    std::vector<kor::CRefPtr<CCvLv>> read;
    for (std::int32_t i = 0; i < count; ++i) {
        TLineRecord record;
        if (!ReadLineRecord(stream, version, record)) return;
        if (load) read.push_back(makeLine(record));
    }
    TSectionTail tail;
    if (HasCvLvRecords(version) && !ReadSectionTail(stream, tail)) return;
    if (!load) return;

    kor::CEventGuard event(m_context);
    DoRemoveAllCvLvls(m_context);
    for (const auto& line : read) AddCvLv(line.Get());
    if (HasCvLvRecords(version)) {
        m_dir = static_cast<enumCvLvDir>(tail.dir);
        m_minQuota = tail.minQuota;
        m_maxQuota = tail.maxQuota;
    } else {
        // An old section stores neither: a file that holds lines is taken as oriented, and the
        // range is that of the lines read (+infinity/-infinity without lines).
        m_dir = read.empty() ? eCvLvDirUnknown : eCvLvDirOriented;
        UpdateMinMaxQuota();
    }
    // The reader's references go inside the event: when it closes, the collection's reference
    // is the only one, as for a line added by the host.
    read.clear();
}
