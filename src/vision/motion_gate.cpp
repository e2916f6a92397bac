// SPDX-License-Identifier: Apache-2.0
#include "vision/motion_gate.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numeric>

#include <string.h>

#include "vision/vector_clones.h"

namespace sentrel::vision {
namespace {

constexpr int fieldWidth = 640;
constexpr int fieldHeight = 480;
constexpr int cell = 4;
constexpr int longestQuiet = std::numeric_limits<std::uint16_t>::max();
// Well above what a camera's noise leaves of a mean over 16 pixels. In a dark picture every change is
// smaller, as everything is.
constexpr int darkLevel = 48;
constexpr int changedLevel = 10;
constexpr int changedLevelInTheDark = 2;
constexpr int brightnessPerLevel = 8;
// Motion that is too small to show somebody new, but not noise.
constexpr int movedLevel = 4;
constexpr int movedLevelInTheDark = 1;
constexpr int fewMovedCells = 4;
constexpr int movedPerNoise = 4;
// A place shows small motion where its brightness differs by so many times what counts as motion.
constexpr int telling = 12;
// Beyond this a median change from frame to frame is motion, not noise.
constexpr int mostNoise = 2;
// About the area of the smallest face that counts.
constexpr int changedCells = 6;

// Motion is a habit of a place when it moved in so many of the last frames, of which there are about ten a
// second. It is forgotten when the place is quiet for some seconds.
constexpr int activityPerMove = 80;
constexpr int mostActivity = 220;
constexpr int habitActivity = 110;

// What stands still is scanned again after these times, for whatever the first look missed: soon at first, as
// another picture of the same place has other noise.
constexpr std::array<std::int64_t, 4> rescanTileMs{0, 300, 700, 6000};
constexpr std::int64_t rescanTileLongMs = 24'000;
constexpr std::int64_t rescanWholeMs = 6000;
// How often the motion of the user alone is a reason for a scan, of the whole and of any tile.
constexpr std::int64_t rescanUserWholeMs = 1000;
constexpr std::int64_t rescanUserMs = 1000;
// How much sooner a tile is scanned in which something moves, above all elsewhere than the user, or which was
// never scanned, than one that only waits for its turn; and as if how long a tile had waited that is to be
// enlarged.
constexpr std::int64_t strangeUrgency = 32;
constexpr std::int64_t movedUrgency = 8;
constexpr std::int64_t unseenUrgency = 4;
constexpr std::int64_t enlargedUrgency = 3000;
// A place is enlarged when it has been quiet for so long, and so long after the last time.
constexpr std::int64_t enlargedAfterMs = 500;
constexpr std::int64_t enlargedAgainMs = 20'000;

SENTREL_CLONES void addBytes(const std::uint8_t* __restrict line, std::size_t count,
                             std::int16_t* __restrict sums) {
  for (std::size_t i = 0; i < count; ++i) sums[i] = static_cast<std::int16_t>(sums[i] + line[i]);
}

/// The brightness of each cell of a row, coarsely: green counts twice. Of `sums` over the cells' rows of
/// pixels.
SENTREL_CLONES void findBrightness(const std::int16_t* __restrict sums, std::size_t cells,
                                   std::uint8_t* __restrict to) {
  constexpr std::size_t values = std::size_t{cell} * 4;
  constexpr std::array<std::int16_t, values> weights{1, 2, 1, 0, 1, 2, 1, 0, 1, 2, 1, 0, 1, 2, 1, 0};
  for (std::size_t i = 0; i < cells; ++i, sums += values) {
    int brightness = 0;
    for (std::size_t k = 0; k < values; ++k) brightness += sums[k] * weights[k];
    to[i] = static_cast<std::uint8_t>(brightness / (4 * cell * cell));
  }
}

/// How many of at most 160 bytes are 1 and not 0, eight at a time: it is asked of every tile in every frame.
int countFlags(const std::uint8_t* flags, std::size_t count) {
  std::uint64_t sums = 0;
  std::size_t done = 0;
  for (; done + sizeof sums <= count; done += sizeof sums) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, flags + done, sizeof eight);
    sums += eight;
  }
  std::size_t rest = 0;
  for (; done < count; ++done) rest += flags[done];
  constexpr std::uint64_t everyByte = 0x0101010101010101;
  return static_cast<int>(rest + (sums * everyByte >> 56));
}

}  // namespace

double fieldScale(const Frame& frame) {
  return std::max(static_cast<double>(frame.width()) / fieldWidth,
                  static_cast<double>(frame.height()) / fieldHeight);
}

void MotionGate::restart() {
  scans_ = {};
  whole_ = {};
  maps_.wipe();
  beganMs_.reset();
  userScanMs_ = 0;
  newsInARow_ = 0;
  tookWhole_ = false;
}

void MotionGate::shrink(const Frame& frame) {
  // Where the field's columns are in the frame: the nearest pixel.
  std::array<int, fieldWidth> source{};
  int known = 0;
  for (; known < fieldWidth; ++known) {
    const int x = static_cast<int>((known + 0.5) * scale_);
    if (x >= frame.width()) break;
    source[static_cast<std::size_t>(known)] = x;
  }
  const auto knownColumns = static_cast<std::size_t>(known / cell);
  Bytes& now = maps_[0].now;
  now.fill(0);
  // Rows of the picture must not stay behind on the stack.
  struct Sums {
    std::array<std::int16_t, std::size_t{fieldWidth} * 4> bytes{};
    std::array<std::uint8_t, std::size_t{fieldWidth} * 4> row{};
    Sums() = default;
    Sums(const Sums&) = delete;
    Sums& operator=(const Sums&) = delete;
    ~Sums() { explicit_bzero(this, sizeof *this); }
  } sums;
  for (int row = 0; row < rows; ++row) {
    sums.bytes.fill(0);
    for (int k = 0; k < cell; ++k) {
      const int y = static_cast<int>((row * cell + k + 0.5) * scale_);
      if (y >= frame.height()) return;
      const std::uint8_t* line = frame.row(y);
      if (scale_ != 1) {
        for (std::size_t x = 0; x < knownColumns * cell; ++x)
          std::memcpy(sums.row.data() + x * 4, line + std::ptrdiff_t{source[x]} * 4, 4);
        line = sums.row.data();
      }
      addBytes(line, knownColumns * cell * 4, sums.bytes.data());
    }
    findBrightness(sums.bytes.data(), knownColumns, now.data() + static_cast<std::ptrdiff_t>(row) * columns);
  }
}

MotionGate::Area MotionGate::areaOf(const Tile& tile) {
  // Without its rim, where a face may be cut off, unless that is the field's own. The others cover it.
  constexpr int rim = 16;
  const auto from = [](int low) { return (low > 0 ? low + rim : 0) / cell; };
  const auto to = [](int high, int side) { return (high < side ? high - rim : side) / cell; };
  Area area;
  area.left = from(tile.x);
  area.top = from(tile.y);
  area.width = to(tile.x + tile.width, fieldWidth) - area.left;
  area.height = to(tile.y + tile.height, fieldHeight) - area.top;
  return area;
}

MotionGate::Area MotionGate::areaOf(const Region& region) const {
  const auto cells = [&](double value, int most) {
    return static_cast<int>(std::clamp(value / scale_ / cell, 0.0, static_cast<double>(most)));
  };
  Area area;
  area.left = cells(region.x, columns);
  area.top = cells(region.y, rows);
  area.width = cells(region.x + region.width + cell * scale_, columns) - area.left;
  area.height = cells(region.y + region.height + cell * scale_, rows) - area.top;
  return area;
}

template <class Visit>
void MotionGate::forEachRow(const Area& area, Visit visit) {
  for (int row = area.top; row < area.top + area.height; ++row) {
    const auto first = static_cast<std::size_t>(row) * columns + static_cast<std::size_t>(area.left);
    visit(first, first + static_cast<std::size_t>(area.width));
  }
}

template <class Is>
int MotionGate::count(const Area& area, Is is) {
  int sum = 0;
  forEachRow(area, [&](std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) sum += is(i) ? 1 : 0;
  });
  return sum;
}

int MotionGate::movedCells(const Area& area, std::int64_t ms, bool alsoUser) const {
  const Maps& maps = maps_[0];
  const auto since = static_cast<Quiet>(std::clamp<std::int64_t>(ms, 0, longestQuiet));
  return count(area,
               [&](std::size_t i) { return maps.quietMs[i] < since && (alsoUser || maps.user[i] == 0); });
}

bool MotionGate::isMuch(const Bytes& flags, const Area& area) {
  int sum = 0;
  forEachRow(area, [&](std::size_t first, std::size_t end) {
    sum += countFlags(flags.data() + first, end - first);
  });
  return sum >= changedCells;
}

void MotionGate::findUser(const std::optional<Region>& user) {
  Bytes& map = maps_[0].user;
  map.fill(0);
  if (!user) return;
  const double x = user->x + user->width / 2;
  const Region head{x - 0.8 * user->width, user->y - 0.6 * user->height, 1.6 * user->width,
                    1.6 * user->height};
  const Region body{x - 1.7 * user->width, user->y + 0.7 * user->height, 3.4 * user->width,
                    static_cast<double>(fieldHeight) * scale_};
  for (const Region& part : {head, body}) {
    forEachRow(areaOf(part), [&](std::size_t first, std::size_t end) {
      std::fill(map.data() + first, map.data() + end, std::uint8_t{1});
    });
  }
}

SENTREL_CLONES void MotionGate::flagChanged(const Bytes& seen, Bytes& changed) const {
  const Bytes& now = maps_[0].now;
  const int most = changedLevel + (dark_ ? 0 : 2 * noise_);
  const int least = dark_ ? changedLevelInTheDark : most;
  for (std::size_t i = 0; i < now.size(); ++i) {
    const int allowed = std::min(most, least + std::max(now[i], seen[i]) / brightnessPerLevel);
    changed[i] = std::abs(now[i] - seen[i]) > allowed ? 1 : 0;
  }
}

// Without branches, so that the loop is vectorised.
SENTREL_CLONES void MotionGate::trackCells(Maps& maps, int most, int elapsedMs) {
  for (std::size_t i = 0; i < maps.now.size(); ++i) {
    const bool moved = std::abs(maps.now[i] - maps.still[i]) > most;
    const int longer = std::min<int>(maps.quietMs[i] + elapsedMs, longestQuiet);
    const int more = std::min(maps.activity[i] + activityPerMove, mostActivity);
    maps.quietMs[i] = static_cast<Quiet>(moved ? 0 : longer);
    maps.activity[i] = static_cast<std::uint8_t>(moved ? more : std::max(maps.activity[i] - 1, 0));
    maps.still[i] = moved ? maps.now[i] : maps.still[i];
    maps.habit[i] = maps.user[i] != 0 && maps.activity[i] >= habitActivity ? 1 : 0;
  }
}

void MotionGate::trackMotion(std::int64_t elapsedMs) {
  Maps& maps = maps_[0];
  // The noise is the median of the changes of some cells.
  constexpr std::size_t apart = 5;
  std::array<int, std::tuple_size_v<Bytes> / apart> changes{};
  for (std::size_t i = 0; i < changes.size(); ++i)
    changes[i] = std::abs(maps.now[i * apart] - maps.before[i * apart]);
  auto* const median = changes.begin() + changes.size() / 2;
  std::nth_element(changes.begin(), median, changes.end());
  noise_ = std::min(*median, mostNoise);
  maps.before = maps.now;
  trackCells(maps, dark_ ? movedLevelInTheDark + noise_ : movedLevel + movedPerNoise * noise_,
             static_cast<int>(std::min<std::int64_t>(elapsedMs, longestQuiet)));
}

void MotionGate::findNews() {
  Maps& maps = maps_[0];
  flagChanged(maps.seenFine, maps.changed);
  for (std::size_t i = 0; i < maps.now.size(); ++i) {
    // What was news once stays so until it is scanned, whatever becomes a habit.
    maps.news[i] = maps.changed[i] != 0 && (maps.news[i] != 0 || maps.habit[i] == 0) ? 1 : 0;
  }
  newsInARow_ = std::clamp(newsInARow_ + (isMuch(maps_[0].news, {}) ? 1 : -2), 0, 2 * busyFrames);
}

void MotionGate::observe(const Frame& frame, std::int64_t timestampMs, const std::optional<Region>& user) {
  if (timestampMs < nowMs_) restart();  // the clock was set back
  scale_ = fieldScale(frame);
  shrink(frame);
  Maps& maps = maps_[0];
  dark_ = std::accumulate(maps.now.begin(), maps.now.end(), 0) < darkLevel * columns * rows;
  if (!beganMs_) {
    beganMs_ = nowMs_ = timestampMs;
    maps.before = maps.still = maps.now;
    maps.quietMs.fill(longestQuiet);
  }
  findUser(user);
  trackMotion(timestampMs - nowMs_);
  nowMs_ = timestampMs;
  findNews();
  if (++enlargedTurn_ == tiles.size()) enlargedTurn_ = fullTiles;
}

bool MotionGate::calmSince(const Region& region, std::int64_t timestampMs) const {
  return timestampMs >= *beganMs_ && movedCells(areaOf(region), nowMs_ - timestampMs) < fewMovedCells;
}

std::int64_t MotionGate::stillMs(const Region& region) const {
  if (dark_) return 0;
  std::int64_t shortest = nowMs_ - *beganMs_;
  int darkest = std::numeric_limits<std::uint8_t>::max();
  int brightest = 0;
  forEachRow(areaOf(region), [&](std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) {
      shortest = std::min<std::int64_t>(shortest, maps_[0].quietMs[i]);
      darkest = std::min<int>(darkest, maps_[0].now[i]);
      brightest = std::max<int>(brightest, maps_[0].now[i]);
    }
  });
  return brightest - darkest >= telling * (movedLevel + movedPerNoise * noise_) ? shortest : 0;
}

double MotionGate::movedShare(const Region& region) const {
  const Area area = areaOf(region);
  const int cells = area.width * area.height;
  return cells > 0 ? static_cast<double>(movedCells(area, 1)) / cells : 0;
}

bool MotionGate::takeWhole(bool wanted) {
  Maps& maps = maps_[0];
  flagChanged(maps.seenWhole, maps.changedWhole);
  const bool changed = isMuch(maps.changedWhole, {});
  const int news = count({}, [&](std::size_t i) { return (maps.changedWhole[i] & ~maps.habit[i]) != 0; });
  const bool due = whole_.count == 0 || news >= changedCells ||
                   age(whole_) >= (changed ? rescanUserWholeMs : rescanWholeMs);
  tookWhole_ = due && !(isBusy() && tookWhole_);
  if (!tookWhole_ && !wanted) return false;
  whole_ = {1, nowMs_};
  maps.seenWhole = maps.now;
  return true;
}

bool MotionGate::hasBacklog() const {
  return std::ranges::any_of(scans_, [](const Scan& scan) { return scan.count == 0; });
}

bool MotionGate::needsEnlarging(std::size_t tile) const {
  if (tile != enlargedTurn_ || isMuch(maps_[0].news, {})) return false;
  // Once, when what moved there has come to rest; the user, who never does, does not count.
  const Scan& scan = scans_[tile];
  const Area area = areaOf(tiles[tile]);
  if (movedCells(area, enlargedAfterMs, false) >= fewMovedCells) return false;
  return scan.count == 0 ||
         (age(scan) >= enlargedAgainMs && movedCells(area, age(scan), false) >= changedCells);
}

std::int64_t MotionGate::urgency(std::size_t tile) const {
  if (tile >= fullTiles) return needsEnlarging(tile) ? enlargedUrgency : 0;
  const Scan& scan = scans_[tile];
  if (scan.count == 0) return unseenUrgency * (nowMs_ - *beganMs_ + 1);
  const Area area = areaOf(tiles[tile]);
  const Maps& maps = maps_[0];
  if (count(area, [&](std::size_t i) { return maps.news[i] > maps.user[i]; }) >= changedCells)
    return strangeUrgency * age(scan);
  if (isMuch(maps.news, area)) return movedUrgency * age(scan);
  const auto repeat = static_cast<std::size_t>(scan.count);
  const bool due = age(scan) >= (repeat < rescanTileMs.size() ? rescanTileMs[repeat] : rescanTileLongMs);
  return due || (nowMs_ - userScanMs_ >= rescanUserMs && isMuch(maps.changed, area)) ? age(scan) : 0;
}

std::optional<Tile> MotionGate::takeTile() {
  if (isBusy() && tookWhole_) return std::nullopt;
  std::size_t best = 0;
  std::int64_t most = 0;
  for (std::size_t tile = 0; tile < tiles.size(); ++tile) {
    const std::int64_t urgent = urgency(tile);
    if (urgent <= most) continue;
    best = tile;
    most = urgent;
  }
  if (most == 0) return std::nullopt;
  Scan& scan = scans_[best];
  scan.timestampMs = nowMs_;
  if (best >= fullTiles) {
    scan.count = 1;
    return tiles[best];
  }
  const Area area = areaOf(tiles[best]);
  const bool news = isMuch(maps_[0].news, area);
  scan.count = news ? 1 : scan.count + 1;
  if (!news && isMuch(maps_[0].changed, area)) userScanMs_ = nowMs_;
  Maps& maps = maps_[0];
  forEachRow(area, [&](std::size_t first, std::size_t end) {
    std::copy(maps.now.data() + first, maps.now.data() + end, maps.seenFine.data() + first);
    std::fill(maps.news.data() + first, maps.news.data() + end, std::uint8_t{0});
  });
  return tiles[best];
}

}  // namespace sentrel::vision
