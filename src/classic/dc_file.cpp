// Reading the file of measured dipolar couplings and taking each coupling's
// internuclear vector from the structure.
#include "classic/dc_file.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "core/fatal.hpp"

namespace vorn {

namespace {

// Atom type indices of the atom name table for the atoms of the coupled pairs.
constexpr int kTypeN = 211;
constexpr int kTypeH = 551;  // "H" and "HN"
constexpr int kTypeCA = 114;
constexpr int kTypeHA = 476;
constexpr int kTypeC = 1;

constexpr int kLineLength = 100;  // fgets buffer: at most 99 characters per read

void close_dc_file(FILE** flag_file) {
  std::fclose(flag_file[3]);
  flag_file[3] = nullptr;  // the caller's table must not close it again
}

}  // namespace

int reading_DCfile(const int* flags, FILE** flag_file, CouplingArrays& couplings, int& dab_sign) {
  if (flags[3] != 1) return 0;

  FILE* file = flag_file[3];
  double maxmeasurednormcoup = -99999.9;
  double minmeasurednormcoup = 99999.9;
  int count = 0;
  const int slots = static_cast<int>(
      std::min({couplings.dc.size(), couplings.dc_res.size(), couplings.dcmax.size()}));

  char line[kLineLength];
  while (std::fgets(line, kLineLength, file) != nullptr) {
    int residue = 0;
    double coupling = 0.0;
    int type = 0;
    if (std::sscanf(line, "%d %lf %d", &residue, &coupling, &type) < 3) {
      close_dc_file(flag_file);
      fatal("Error: Input data in file with measured dipolar couplings have wrong format\n" +
                format("Line:%s", line),
            Stream::err, 1);
    }
    // The type indexes the per-type constant tables; a value outside 0..5
    // would read past them, so it is rejected here in the style of the
    // format error above.
    if (type < 0 || type >= kClassicCouplingTypes) {
      close_dc_file(flag_file);
      fatal("Error: DC type must be 0 to 5 in file with measured dipolar couplings\n" +
                format("Line:%s", line),
            Stream::err, 1);
    }
    // The storage holds 4999 couplings (index 0 unused); a longer file is
    // rejected with the same message as the exactly-4999 test below instead
    // of being written past the arrays.
    if (count + 1 > kCouplingLimit || count + 1 >= slots) {
      close_dc_file(flag_file);
      nerror("Too many measured dipolar couplings ...");
    }
    count += 1;
    couplings.dc_res[count] = residue;
    couplings.dc[count] = coupling;
    couplings.dcmax[count] = type;

    const double normalised = coupling / classic_norm_factor(type);
    if (normalised > maxmeasurednormcoup) maxmeasurednormcoup = normalised;
    if (normalised < minmeasurednormcoup) minmeasurednormcoup = normalised;
  }

  dab_sign = std::fabs(minmeasurednormcoup) > std::fabs(maxmeasurednormcoup) ? -1 : 1;
  close_dc_file(flag_file);

  // Tested once, after the whole file, and only for equality (kept as it is).
  if (count == kCouplingLimit) nerror("Too many measured dipolar couplings ...");
  return count;
}

void reading_vectors(int nodc, CouplingArrays& couplings, int noatoms, const AtomArrays& atoms) {
  // Never look past the arrays the caller owns.
  const int last_coupling = std::min<int>(nodc, static_cast<int>(couplings.dc.size()) - 1);
  const int last_atom = std::min<int>(noatoms, static_cast<int>(atoms.x.size()) - 1);

  // Running values, set once before the loop and deliberately not reset per
  // coupling: a missing or later-standing first atom reuses the last x1, a
  // type without an atom pair keeps the pair of the previous coupling.
  double x1[3] = {0.0, 0.0, 0.0};
  int first_atom = 0;
  int second_atom = 0;
  int offset = 0;

  for (int i = 1; i <= last_coupling; ++i) {
    switch (couplings.dcmax[i]) {
      case 0:
        first_atom = kTypeN;
        second_atom = kTypeH;
        offset = 0;
        break;
      case 1:
        first_atom = kTypeCA;
        second_atom = kTypeHA;
        offset = 0;
        break;
      case 2:
        first_atom = kTypeCA;
        second_atom = kTypeC;
        offset = 0;
        break;
      case 3:
        first_atom = kTypeC;
        second_atom = kTypeN;
        offset = 1;
        break;
      case 4:
        first_atom = kTypeC;
        second_atom = kTypeH;
        offset = 1;
        break;
      default:
        break;
    }
    const int residue = couplings.dc_res[i];
    for (int j = 1; j <= last_atom; ++j) {
      if (atoms.res_nr[j] == residue - offset && atoms.atom[j] == first_atom) {
        x1[0] = atoms.x[j];
        x1[1] = atoms.y[j];
        x1[2] = atoms.z[j];
      }
      if (atoms.res_nr[j] == residue && atoms.atom[j] == second_atom) {
        couplings.coor_x[i] = x1[0] - atoms.x[j];
        couplings.coor_y[i] = x1[1] - atoms.y[j];
        couplings.coor_z[i] = x1[2] - atoms.z[j];
        break;
      }
    }
  }
}

std::vector<ClassicCoupling> classic_couplings(int nodc, const CouplingArrays& couplings) {
  const int last = std::min<int>(nodc, static_cast<int>(couplings.dc.size()) - 1);
  std::vector<ClassicCoupling> result;
  for (int i = 1; i <= last; ++i) {
    result.push_back({couplings.dc_res[i],
                      couplings.dc[i],
                      couplings.dcmax[i],
                      {couplings.coor_x[i], couplings.coor_y[i], couplings.coor_z[i]}});
  }
  return result;
}

}  // namespace vorn
