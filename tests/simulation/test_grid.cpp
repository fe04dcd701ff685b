#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>

#include "core/fatal.hpp"
#include "simulation/grid.hpp"
#include "vorn/settings.hpp"

namespace vorn {
namespace {

// The classic program's grids hold 1000 points (indices 0..999); the engine
// has no capacity of its own, so the classic cap is given explicitly where
// it is tested.
constexpr int kGridSlots = 1000;
constexpr int kClassicMaxGridIndex = kGridSlots - 1;

// A log that appends its listings to `text`.
Log listing_into(std::string& text) {
  Log log;
  log.listing = [&text](std::string_view part) { text.append(part); };
  return log;
}

constexpr double kUnset = -777.0;  // sentinel for outputs that must stay untouched

struct GridRun {
  Grid grid = Grid(kGridSlots, GridPoint{kUnset, kUnset, kUnset, kUnset});
  Grid grid_ph = Grid(kGridSlots, GridPoint{kUnset, kUnset, kUnset, kUnset});
  int no_pt_ph = -5;
  double final_distance = kUnset;
  double final_distance_ph = kUnset;
  int count = -9;
  std::string out;
};

// make_grid with the engine's default (no cap) unless a highest grid index
// is given.
GridRun make(const Settings& s, double min_len, double max_len, double obstruction, int grid_flag,
             int liquid_flag, double spacing, double s_l_ratio = 1.0,
             int max_grid_index = std::numeric_limits<int>::max()) {
  GridRun r;
  r.count = make_grid(s, s_l_ratio, min_len, max_len, obstruction, grid_flag, liquid_flag, spacing,
                      r.grid, r.no_pt_ph, r.grid_ph, r.final_distance, r.final_distance_ph,
                      listing_into(r.out), max_grid_index);
  return r;
}

std::string fatal_text(const std::function<void()>& call) {
  try {
    call();
  } catch (const FatalError& e) {
    EXPECT_EQ(e.stream(), Stream::err);
    EXPECT_EQ(e.status(), 1);
    return e.text();
  }
  return "<no fatal error>";
}

TEST(WallGrid, ExactSpacingIncludesTheEndPoint) {
  const Settings s;
  // Lengths 5..10 A, obstacle 20 A: points 25, 25.5, ..., 30.
  const GridRun r = make(s, 5.0, 10.0, 20.0, 2, 1, 0.5);
  EXPECT_EQ(r.count, 10);
  for (int i = 0; i <= 10; ++i) {
    EXPECT_EQ(r.grid[i][1], 25.0 + 0.5 * i) << i;
    EXPECT_EQ(r.grid[i][2], 0.0);
    EXPECT_EQ(r.grid[i][3], 0.0);
  }
  EXPECT_EQ(r.final_distance, 30.0);
  EXPECT_EQ(r.grid[11][1], kUnset);  // nothing beyond the last index
  // No cylinder grid for the wall alone.
  EXPECT_EQ(r.no_pt_ph, -5);
  EXPECT_EQ(r.final_distance_ph, kUnset);
  EXPECT_EQ(r.grid_ph[0][1], kUnset);
  EXPECT_EQ(r.out, "");
}

TEST(WallGrid, InexactSpacingFallsShortOfTheEnd) {
  const Settings s;
  const GridRun r = make(s, 5.0, 10.3, 20.0, 2, 1, 0.5);
  EXPECT_EQ(r.count, 10);  // trunc(5.3 / 0.5)
  EXPECT_EQ(r.final_distance, 30.0);
  EXPECT_LT(r.final_distance, 10.3 + 20.0);
  EXPECT_GT(r.final_distance, 10.3 + 20.0 - 0.5);
}

TEST(WallGrid, LengthBelowSpacingGivesASinglePoint) {
  const Settings s;
  const GridRun r = make(s, 7.25, 7.6, 20.0, 2, 1, 0.5);
  EXPECT_EQ(r.count, 0);
  EXPECT_EQ(r.grid[0][1], 27.25);
  EXPECT_EQ(r.final_distance, 27.25);
  EXPECT_EQ(r.grid[1][1], kUnset);
}

TEST(WallGrid, PointsAreStartPlusIndexTimesSpacing) {
  const Settings s;
  const GridRun r = make(s, 4.4, 19.9, 20.0, 2, 1, 0.3);
  const int n = static_cast<int>((19.9 - 4.4) / 0.3);
  EXPECT_EQ(r.count, n);
  for (int i = 0; i <= n; ++i) {
    EXPECT_EQ(r.grid[i][1], (4.4 + 20.0) + i * 0.3);
  }
}

TEST(PhageGrid, PhageAloneUsesItsOwnLastPointAndReturnsZero) {
  const Settings s;
  const GridRun r = make(s, 5.0, 8.0, 30.0, 2, 2, 0.5);
  EXPECT_EQ(r.count, 0);
  EXPECT_EQ(r.no_pt_ph, 6);
  for (int i = 0; i <= 6; ++i) {
    EXPECT_EQ(r.grid_ph[i][1], 35.0 + 0.5 * i);
    EXPECT_EQ(r.grid_ph[i][2], 0.0);
    EXPECT_EQ(r.grid_ph[i][3], 0.0);
  }
  EXPECT_EQ(r.final_distance_ph, 38.0);
  EXPECT_EQ(r.final_distance, kUnset);
  EXPECT_EQ(r.grid[0][1], kUnset);  // no wall grid
}

TEST(PhageGrid, CombinedMediumBuildsBothGridsOnlyForExactlyOne) {
  Settings s;
  s.bic_phage = 1.0;
  const GridRun both = make(s, 5.0, 7.0, 20.0, 2, 1, 0.5);
  EXPECT_EQ(both.count, 4);
  EXPECT_EQ(both.no_pt_ph, 4);
  for (int i = 0; i <= 4; ++i) {
    EXPECT_EQ(both.grid_ph[i][1], both.grid[i][1]);
  }
  EXPECT_EQ(both.final_distance, 27.0);
  EXPECT_EQ(both.final_distance_ph, 27.0);

  s.bic_phage = 0.9999999;
  const GridRun wall = make(s, 5.0, 7.0, 20.0, 2, 1, 0.5);
  EXPECT_EQ(wall.count, 4);
  EXPECT_EQ(wall.no_pt_ph, -5);
  EXPECT_EQ(wall.final_distance_ph, kUnset);
  EXPECT_EQ(wall.grid_ph[0][1], kUnset);
}

TEST(PhageGrid, DebugPrintsEveryPhagePoint) {
  Settings s;
  s.debug = 1;
  const GridRun r = make(s, 5.0, 6.0, 30.0, 2, 2, 0.5);
  EXPECT_EQ(r.out,
            "@@ grid_setup  pt[0]:  35.0    0.0    0.0\n"
            "@@ grid_setup  pt[1]:  35.5    0.0    0.0\n"
            "@@ grid_setup  pt[2]:  36.0    0.0    0.0\n");
  // The wall grid has no diagnostic print.
  const GridRun wall = make(s, 5.0, 6.0, 20.0, 2, 1, 0.5);
  EXPECT_EQ(wall.out, "");
}

TEST(PhageGrid, DebugOffPrintsNothing) {
  Settings s;
  s.bic_phage = 1.0;
  const GridRun r = make(s, 5.0, 6.0, 30.0, 2, 1, 0.5);
  EXPECT_EQ(r.no_pt_ph, 2);
  EXPECT_EQ(r.out, "");
}

TEST(SheetGrid, FilledFromIndexOneAndNothingElse) {
  const Settings s;
  // A = 1 * 0.5 + 1.5 = 2, B = 1 + 1.5 = 2.5: nA = 2, nB = 2 with spacing 1.
  const GridRun r = make(s, 0.5, 1.5, 1.0, 1, 1, 1.0, 0.5);
  EXPECT_EQ(r.count, 9);
  EXPECT_EQ(r.grid[0][1], kUnset);
  const double expected[10][2] = {{0, 0},     {2.0, 2.5}, {2.0, 1.5}, {2.0, 0.5}, {1.0, 2.5},
                                  {1.0, 1.5}, {1.0, 0.5}, {0.0, 2.5}, {0.0, 1.5}, {0.0, 0.5}};
  for (int p = 1; p <= 9; ++p) {
    EXPECT_EQ(r.grid[p][1], expected[p][0]) << p;
    EXPECT_EQ(r.grid[p][2], expected[p][1]) << p;
    EXPECT_EQ(r.grid[p][3], 0.0) << p;
  }
  EXPECT_EQ(r.grid[10][1], kUnset);
  EXPECT_EQ(r.final_distance, kUnset);
  EXPECT_EQ(r.final_distance_ph, kUnset);
  EXPECT_EQ(r.no_pt_ph, -5);
  EXPECT_EQ(r.grid_ph[0][1], kUnset);
}

TEST(SheetGrid, LargerSheetsAreCountedButStoredOnlyAsFarAsTheyFit) {
  const Settings s;
  // A = 0 * 10 + 26.5 -> nA = 26; B = 10 + 26.5 -> nB = 36: 27 * 37 = 999 points.
  const GridRun full = make(s, 0.0, 26.5, 10.0, 1, 1, 1.0, 0.0);
  EXPECT_EQ(full.count, 999);
  EXPECT_EQ(full.grid[999][1], 0.5);
  EXPECT_EQ(full.grid[999][2], 0.5);
  // One step more in each direction: 28 * 38 points, counted in full; the
  // sheet is never simulated, so the points beyond the storage are dropped.
  const GridRun more = make(s, 0.0, 27.5, 10.0, 1, 1, 1.0, 0.0);
  EXPECT_EQ(more.count, 28 * 38);
  EXPECT_EQ(more.grid.size(), static_cast<size_t>(kGridSlots));
  EXPECT_EQ(more.grid[1][1], 27.5);
  EXPECT_EQ(more.grid[1][2], 37.5);
  // The default settings ask for a sheet far beyond the capacity.
  const GridRun defaults = make(s, 13.0, 25.0, 20.0, 1, 1, 0.5, 1.0);
  EXPECT_EQ(defaults.count, 91 * 91);
  // A count no int can hold is refused.
  EXPECT_EQ(fatal_text([&] { make(s, 0.0, 1e6, 10.0, 1, 1, 1e-3, 0.0); }),
            "run-time error...\nToo many grid points ...\n...now exiting to system...\n");
}

TEST(GridCapacity, NineHundredNinetyNineIsTheHighestIndex) {
  // The classic cap, given explicitly: the engine has none of its own.
  const Settings s;
  const GridRun r = make(s, 1.0, 500.5, 20.0, 2, 1, 0.5, 1.0, kClassicMaxGridIndex);
  EXPECT_EQ(r.count, 999);
  EXPECT_EQ(r.final_distance, 21.0 + 999 * 0.5);
  EXPECT_EQ(fatal_text([&] { make(s, 1.0, 501.0, 20.0, 2, 1, 0.5, 1.0, kClassicMaxGridIndex); }),
            "run-time error...\nToo many grid points ...\n...now exiting to system...\n");
  EXPECT_EQ(fatal_text([&] { make(s, 1.0, 501.0, 30.0, 2, 2, 0.5, 1.0, kClassicMaxGridIndex); }),
            "run-time error...\nToo many grid points ...\n...now exiting to system...\n");
}

TEST(GridCapacity, WithoutACapLargerGridsAreBuiltInFull) {
  const Settings s;
  // Index 1000, one beyond the classic cap: the wall grid grows to hold it.
  const GridRun wall = make(s, 1.0, 501.0, 20.0, 2, 1, 0.5);
  EXPECT_EQ(wall.count, 1000);
  ASSERT_EQ(wall.grid.size(), 1001u);
  EXPECT_EQ(wall.grid[1000][1], 21.0 + 1000 * 0.5);
  EXPECT_EQ(wall.final_distance, 21.0 + 1000 * 0.5);
  const GridRun phage = make(s, 1.0, 501.0, 30.0, 2, 2, 0.5);
  EXPECT_EQ(phage.no_pt_ph, 1000);
  ASSERT_EQ(phage.grid_ph.size(), 1001u);
  EXPECT_EQ(phage.final_distance_ph, 31.0 + 1000 * 0.5);
  // A cap of its own: the highest index may equal it, not exceed it.
  EXPECT_EQ(make(s, 1.0, 6.0, 20.0, 2, 1, 0.5, 1.0, 10).count, 10);
  EXPECT_EQ(fatal_text([&] { make(s, 1.0, 6.5, 20.0, 2, 1, 0.5, 1.0, 10); }),
            "run-time error...\nToo many grid points ...\n...now exiting to system...\n");
  // A count no int can hold is refused even without a cap.
  EXPECT_EQ(fatal_text([&] { make(s, 0.0, 1e6, 10.0, 2, 1, 1e-6); }),
            "run-time error...\nToo many grid points ...\n...now exiting to system...\n");
}

TEST(GridCapacity, UnusableCountsAreRejected) {
  const Settings s;
  const std::string none = "run-time error...\nNo grid points ...\n...now exiting to system...\n";
  const std::string many =
      "run-time error...\nToo many grid points ...\n...now exiting to system...\n";
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(fatal_text([&] { make(s, 3.0, 3.0, 20.0, 2, 1, 0.0); }), none);  // 0/0
  EXPECT_EQ(fatal_text([&] { make(s, nan, 3.0, 20.0, 2, 2, 0.5); }), none);
  EXPECT_EQ(fatal_text([&] { make(s, 3.0, 4.0, 20.0, 2, 1, 0.0); }), many);  // infinite
  EXPECT_EQ(fatal_text([&] { make(s, 3.0, 4.0, 20.0, 2, 1, 1e-300); }), many);
  // An empty atom set: lengths 0 + 3 and sqrt(100000) + 3.
  EXPECT_EQ(fatal_text([&] { make(s, std::sqrt(100000.0) + 3.0, 3.0, 20.0, 2, 1, 0.5); }), none);
  EXPECT_EQ(fatal_text([&] { make(s, 3.0, 4.0, 20.0, 2, 1, -0.5); }), none);
  EXPECT_EQ(fatal_text([&] { make(s, 3.0, nan, 20.0, 1, 1, 0.5); }), none);
  // A slightly negative length truncates to index 0: one point.
  const GridRun r = make(s, 3.2, 3.0, 20.0, 2, 1, 0.5);
  EXPECT_EQ(r.count, 0);
  EXPECT_EQ(r.final_distance, 3.2 + 20.0);
}

TEST(GridCapacity, ShortGridVectorsAreGrownAsNeeded) {
  // The engine has no fixed capacity: a short line grid grows to hold the
  // points it needs (0..4 here), whatever the cap.
  const Settings s;
  for (const int cap : {std::numeric_limits<int>::max(), kClassicMaxGridIndex}) {
    Grid grid;
    Grid grid_ph;
    int no_pt_ph = 0;
    double fd = 0.0;
    double fd_ph = 0.0;
    std::string listing;
    EXPECT_EQ(make_grid(s, 1.0, 0.0, 2.0, 20.0, 2, 1, 0.5, grid, no_pt_ph, grid_ph, fd, fd_ph,
                        listing_into(listing), cap),
              4);
    ASSERT_EQ(grid.size(), 5u);
    EXPECT_EQ(grid[4][1], 22.0);
    EXPECT_EQ(fd, 22.0);
    EXPECT_TRUE(grid_ph.empty());
    EXPECT_EQ(listing, "");
  }
  // The sheet is counted in full but stored only as far as the grid given
  // already reaches: an empty grid stays empty.
  Grid sheet;
  Grid sheet_ph;
  int no_pt_ph = -5;
  double fd = kUnset;
  double fd_ph = kUnset;
  EXPECT_EQ(
      make_grid(s, 0.5, 0.5, 1.5, 1.0, 1, 1, 1.0, sheet, no_pt_ph, sheet_ph, fd, fd_ph, Log{}), 9);
  EXPECT_TRUE(sheet.empty());
  EXPECT_TRUE(sheet_ph.empty());
}

TEST(SetupModel, PassesTheMediumAndGridTypeThrough) {
  const Settings s;
  for (const int liquid : {1, 2}) {
    GridRun direct = make(s, 4.0, 9.0, 30.0, 2, liquid, 0.5);
    GridRun via;
    via.count =
        setup_model(s, 0.123, 1.0, 4.0, 9.0, 30.0, liquid, 2, 0.5, via.grid, via.no_pt_ph,
                    via.grid_ph, via.final_distance, via.final_distance_ph, listing_into(via.out));
    EXPECT_EQ(via.count, direct.count);
    EXPECT_EQ(via.no_pt_ph, direct.no_pt_ph);
    EXPECT_EQ(via.final_distance, direct.final_distance);
    EXPECT_EQ(via.final_distance_ph, direct.final_distance_ph);
    for (int i = 0; i < kGridSlots; ++i) {
      EXPECT_EQ(via.grid[i], direct.grid[i]);
      EXPECT_EQ(via.grid_ph[i], direct.grid_ph[i]);
    }
  }
  // Sheet via setup_model: grid type 1.
  GridRun sheet;
  sheet.count =
      setup_model(s, 0.05, 0.5, 0.5, 1.5, 1.0, 1, 1, 1.0, sheet.grid, sheet.no_pt_ph, sheet.grid_ph,
                  sheet.final_distance, sheet.final_distance_ph, listing_into(sheet.out));
  EXPECT_EQ(sheet.count, 9);
}

TEST(SetupModel, PassesTheLogAndTheCapThrough) {
  Settings s;
  s.debug = 1;
  GridRun via;
  via.count = setup_model(s, 0.05, 1.0, 5.0, 6.0, 30.0, 2, 2, 0.5, via.grid, via.no_pt_ph,
                          via.grid_ph, via.final_distance, via.final_distance_ph,
                          listing_into(via.out), kClassicMaxGridIndex);
  EXPECT_EQ(via.out, make(s, 5.0, 6.0, 30.0, 2, 2, 0.5).out);
  EXPECT_EQ(via.out,
            "@@ grid_setup  pt[0]:  35.0    0.0    0.0\n"
            "@@ grid_setup  pt[1]:  35.5    0.0    0.0\n"
            "@@ grid_setup  pt[2]:  36.0    0.0    0.0\n");
  GridRun capped;
  EXPECT_EQ(fatal_text([&] {
              setup_model(s, 0.05, 1.0, 1.0, 501.0, 20.0, 1, 2, 0.5, capped.grid, capped.no_pt_ph,
                          capped.grid_ph, capped.final_distance, capped.final_distance_ph, Log{},
                          kClassicMaxGridIndex);
            }),
            "run-time error...\nToo many grid points ...\n...now exiting to system...\n");
}

TEST(SetupModel, OtherGridTypesAndMediaBuildNothing) {
  const Settings s;
  for (const auto& [grid_flag, liquid_flag] : {std::pair{3, 1}, std::pair{0, 2}, std::pair{2, 5}}) {
    const GridRun r = make(s, 4.0, 9.0, 20.0, grid_flag, liquid_flag, 0.5);
    EXPECT_EQ(r.count, 0);
    EXPECT_EQ(r.no_pt_ph, -5);
    EXPECT_EQ(r.final_distance, kUnset);
    EXPECT_EQ(r.final_distance_ph, kUnset);
    EXPECT_EQ(r.grid[0][1], kUnset);
    EXPECT_EQ(r.grid_ph[0][1], kUnset);
  }
}

}  // namespace
}  // namespace vorn
