// Atom-name, residue-name and mass tables.
//
// Every lookup is defined by an ordered list compared name by name, the first
// equal entry deciding. The lists are turned once into hash maps that keep the
// first occurrence of a name, which gives the same results as the linear scan.
#include "molecule/toppar.hpp"

#include <array>
#include <cstddef>
#include <string_view>
#include <unordered_map>

namespace vorn {

namespace {

// Atom names in lookup order; the position (counted from 1) is the type index
// apart from the exceptions of atom_index_at, and decides the mass block.
constexpr std::array<std::string_view, kAtomListSize> kAtomNames = {
    // positions 1 to 208: carbon block (12.011)
    "C", "C1", "C1'", "C1'A", "C1'C", "C1'N", "C10", "C11", "C12", "C13", "C14", "C15", "C16",
    "C17", "C18", "C19", "C1A", "C1B", "C1C", "C1D", "C1M", "C2", "C2'", "C2'A", "C2'C", "C2'N",
    "C20", "C21", "C210", "C211", "C212", "C213", "C214", "C215", "C216", "C22", "C23", "C24",
    "C25", "C26", "C27", "C28", "C29", "C2A", "C2B", "C2C", "C2D", "C2N", "C3", "C3'", "C3'A",
    "C3'C", "C3'N", "C30", "C31", "C310", "C311", "C312", "C313", "C314", "C315", "C316", "C32",
    "C33", "C34", "C35", "C36", "C37", "C38", "C39", "C3A", "C3B", "C3C", "C3D", "C3N", "C4", "C4'",
    "C4'A", "C4'C", "C4'N", "C40", "C41", "C42", "C43", "C44", "C45", "C46", "C4A", "C4B", "C4C",
    "C4D", "C4N", "C5", "C5'", "C5'A", "C5'C", "C5'N", "C5A", "C5C", "C5M", "C5N", "C6", "C6A",
    "C6C", "C6N", "C7", "C7M", "C7N", "C8", "C8A", "C8M", "C9", "C9A", "CA", "CAA", "CAB", "CAC",
    "CAD", "CAL", "CAY", "CB", "CB1", "CB2", "CBA", "CBB", "CBC", "CBD", "CC", "CD", "CD1", "CD2",
    "CE", "CE1", "CE2", "CE3", "CED", "CF", "CF3", "CG", "CG1", "CG2", "CG3", "CGA", "CGD", "CH2",
    "CH3", "CHA", "CHB", "CHC", "CHD", "CL", "CL1", "CLP", "CM", "CM1", "CM10", "CM2", "CM3", "CM4",
    "CM5", "CM6", "CM7", "CM8", "CM9", "CMA", "CMB", "CMC", "CMD", "CP1", "CP10", "CP11", "CP12",
    "CP13", "CP14", "CP15", "CP16", "CP17", "CP18", "CP19", "CP2", "CP20", "CP3", "CP4", "CP5",
    "CP6", "CP7", "CP8", "CP9", "CR", "CRP", "CT", "CY", "CZ", "CZ2", "CZ3", "Cl", "FC1", "FC2",
    "FC3", "N1C", "N3C", "N4C", "NC", "O2'C", "O2C", "O3'C", "O4'C", "O5'C",
    // positions 209 to 252: nitrogen block (14.007)
    "1NE2", "1ZN", "N", "N1", "N10", "N1A", "N1N", "N2", "N3", "N3A", "N4", "N5", "N6", "N6A", "N7",
    "N7A", "N7N", "N9", "N9A", "NA", "NB", "ND", "ND1", "ND2", "NE", "NE1", "NE2", "NH1", "NH2",
    "NL", "NR", "NT", "NZ", "NZ1", "Na", "O1PN", "O2'N", "O2PN", "O3'N", "O4'N", "O5'N", "O7N",
    "PN", "ZN",
    // positions 253 to 316: oxygen block (15.999)
    "O", "O1", "O10", "O11", "O12", "O13", "O14", "O1A", "O1B", "O1D", "O1P", "O1PA", "O2", "O2'",
    "O2'A", "O21", "O22", "O2A", "O2D", "O2P", "O2PA", "O3", "O3'", "O3'A", "O31", "O32", "O3P",
    "O4", "O4'", "O4'A", "O5", "O5'", "O5'A", "O6", "O7", "O8", "O9", "OBB", "OBD", "OD1", "OD2",
    "OE1", "OE2", "OF", "OF1", "OF2", "OF3", "OG", "OG1", "OG2", "OG3", "OH", "OH1", "OH2", "OH3",
    "OL", "OM", "OR", "OS1", "OS2", "OS3", "OS4", "OY", "SOD",
    // positions 317 to 321: sulphur block (32.06)
    "S", "S2", "S3", "SD", "SG",
    // positions 322 to 328: metals and phosphorus (14.0)
    "FE", "MG", "P", "P1", "PA", "PF", "YB",
    // positions 329 to 588: hydrogens (1.008)
    "H", "H1", "H1'", "H10", "H101", "H102", "H10R", "H10S", "H10X", "H10Y", "H11", "H111", "H112",
    "H113", "H11A", "H11B", "H11R", "H11S", "H11X", "H11Y", "H12", "H121", "H122", "H123", "H12A",
    "H12B", "H12R", "H12S", "H12T", "H12X", "H12Y", "H12Z", "H13", "H13A", "H13B", "H13C", "H13R",
    "H13S", "H13X", "H13Y", "H14A", "H14B", "H14C", "H14R", "H14S", "H14T", "H14X", "H14Y", "H14Z",
    "H15A", "H15B", "H15C", "H15R", "H15S", "H15X", "H15Y", "H16R", "H16S", "H16T", "H16X", "H16Y",
    "H16Z", "H2", "H2'", "H2''", "H2'A", "H2'C", "H2'N", "H21", "H211", "H212", "H213", "H22",
    "H23", "H2R", "H2S", "H2X", "H2Y", "H3", "H3'", "H3'A", "H3'N", "H31", "H32", "H33", "H3R",
    "H3S", "H3T", "H3X", "H3Y", "H4", "H4'", "H41", "H41C", "H42", "H42C", "H43", "H4R", "H4S",
    "H4X", "H4Y", "H5", "H5'", "H5''", "H51", "H52", "H53", "H5R", "H5S", "H5T", "H5X", "H5Y", "H6",
    "H61", "H61A", "H62", "H62A", "H63", "H6R", "H6S", "H6X", "H6Y", "H7", "H71", "H71N", "H72",
    "H72N", "H73", "H7R", "H7S", "H7X", "H7Y", "H8", "H81", "H82", "H83", "H8R", "H8S", "H8X",
    "H8Y", "H9", "H91", "H92", "H9R", "H9S", "H9X", "H9Y", "HA", "HA1", "HA2", "HA3", "HAA1",
    "HAA2", "HAB", "HAC", "HAD1", "HAD2", "HB", "HB1", "HB2", "HB3", "HBA1", "HBA2", "HBB1", "HBB2",
    "HBC1", "HBC2", "HBD1", "HBD2", "HC", "HC1", "HC2", "HC3", "HD", "HD1", "HD11", "HD12", "HD13",
    "HD2", "HD21", "HD22", "HD23", "HD3", "HE", "HE1", "HE2", "HE21", "HE22", "HE3", "HG", "HG1",
    "HG11", "HG12", "HG13", "HG2", "HG21", "HG22", "HG23", "HG31", "HG32", "HH", "HH11", "HH12",
    "HH2", "HH21", "HH22", "HL", "HL1", "HL2", "HL3", "HMA1", "HMA2", "HMA3", "HMB1", "HMB2",
    "HMB3", "HMC1", "HMC2", "HMC3", "HMD1", "HMD2", "HMD3", "HN", "HN1", "HN2", "HN3", "HN5", "HO",
    "HO1", "HO2", "HO3", "HO4", "HO6", "HO7", "HO8", "HO9", "HR", "HR1", "HR2", "HR3", "HS", "HT",
    "HT1", "HT2", "HX", "HY", "HY1", "HY2", "HY3", "HZ", "HZ1", "HZ11", "HZ12", "HZ13", "HZ2",
    "HZ3", "1HG", "1HG1", "2HG", "2HG1",
    // positions 589 to 592: terminal oxygens (12.011)
    "OXT", "OT1", "OT2", "OT3",
    // positions 593 to 633: digit-first hydrogens, X, QB (1.008)
    "1HA", "2HA", "1HB", "2HB", "3HB", "1HG", "2HG", "1HG1", "2HG1", "3HG1", "1HG2", "2HG2", "3HG2",
    "1HE", "2HE", "3HE", "1HE2", "2HE2", "1HD", "2HD", "1HD1", "2HD1", "3HD1", "1HD2", "2HD2",
    "3HD2", "1HZ", "2HZ", "3HZ", "1HH1", "2HH1", "1HH2", "2HH2", "1HT", "2HT", "3HT", "1H", "2H",
    "3H", "X", "QB"};

// Residue names in lookup order (ascending character order); the position
// counted from 1 is the residue type index.
constexpr std::array<std::string_view, kResidueListSize> kResidueNames = {
    "1MA",  "1MC",  "1MT",  "2'OM", "2AMP", "2END", "2M2G", "3PHO", "3TER", "3UMP", "5MC",  "5MET",
    "5PHO", "5TER", "7MG",  "9EG",  "9MA",  "9MG",  "A12",  "A13",  "A13L", "A14",  "A16",  "A16L",
    "A23",  "A26",  "ACE",  "ACEH", "ACEM", "ACET", "ACHO", "ACP",  "ADE",  "AIB",  "ALA",  "ALAD",
    "AMG",  "AMX",  "AP2",  "ARG",  "ASN",  "ASP",  "ASPP", "AZID", "B12",  "B14",  "B1N",  "BCB",
    "BCHC", "BCL",  "BENZ", "BMPP", "BPB",  "BPH",  "BPHC", "BUTA", "BtoA", "C",    "C8A",  "CA++",
    "CA2",  "CAL",  "CBX",  "CCMP", "CE",   "CHL",  "CHOL", "CL",   "CMP",  "CO",   "COH",  "CPA",
    "CPR",  "CT1",  "CT2",  "CT3",  "CTEG", "CTER", "CTN",  "CYS",  "CYT",  "DEO1", "DEO2", "DEOT",
    "DEOX", "DHU",  "DISU", "DLPE", "DMDS", "DMPA", "DMPC", "DPPC", "EIMI", "EIMM", "EMS",  "ES1",
    "ETAC", "ETAM", "ETH",  "ETHA", "ETO",  "ETOH", "ETSH", "FC",   "FE1",  "FEGL", "FEOX", "FHEM",
    "FMA",  "FME",  "FMN",  "FORM", "FUC",  "GAL",  "GCM",  "GLC",  "GLN",  "GLU",  "GLUA", "GLUP",
    "GLY",  "GLYP", "GMG",  "GMP",  "GMX",  "GNP",  "GOM",  "GPC",  "GPE",  "GUA",  "GUAN", "HEM",
    "HEME", "HIBD", "HID",  "HIP",  "HIS",  "HISD", "HISE", "HISH", "HIST", "HISU", "HS2",  "HSD",
    "HSE",  "HSP",  "HYL",  "HYP",  "IBUT", "ILE",  "IMIA", "IMIM", "INDO", "LDA",  "LEU",  "LIG1",
    "LIG2", "LIG3", "LINK", "LPPC", "LYS",  "LtoD", "M2G",  "MAMI", "MAMM", "MAN",  "MAS",  "MEOH",
    "MES1", "MESH", "MET",  "METO", "MG",   "MGUA", "MIMI", "MIP",  "MPRO", "MP_0", "MP_1", "MP_2",
    "MQ7",  "MSO4", "NA",   "NAD",  "NAF",  "NAG",  "NAH",  "NAP",  "NAX",  "NC4",  "NC5",  "NH4",
    "NMA",  "NMG",  "NMX",  "NS1",  "NTEG", "NTER", "NUC",  "O2",   "OH2",  "PBCL", "PC",   "PCYB",
    "PCYC", "PEN",  "PENT", "PEPP", "PEPT", "PFE",  "PHE",  "PHEM", "PHEN", "PHEO", "PLIG", "PLO2",
    "PLWA", "PMET", "PPG1", "PPG2", "PPGG", "PPGP", "PRO",  "PRO2", "PROP", "PSI",  "PUR",  "PURA",
    "PURG", "PYR",  "PYRC", "PYRU", "RIBN", "RIBT", "RMHB", "SDS",  "SER",  "SIA",  "SO4",  "SOD",
    "TFE",  "TFME", "THE",  "THR",  "THY",  "TIP3", "TP2",  "TRP",  "TYR",  "UNPR", "UQ1",  "URA",
    "URE",  "URI",  "VAL",  "WAT",  "WYE",  "XCM",  "XMG",  "XMP",  "XMX",  "XNP",  "XOM",  "XXX",
    "XYL",  "YB3",  "ZN",   "ZN2",  "ZNK"};

// A short initialiser list would leave empty names at the end unnoticed.
template <std::size_t N>
constexpr bool all_named(const std::array<std::string_view, N>& list) {
  for (const std::string_view name : list) {
    if (name.empty()) {
      return false;
    }
  }
  return true;
}
static_assert(all_named(kAtomNames) && all_named(kResidueNames));
static_assert(kAtomNames[0] == "C" && kAtomNames[113] == "CA" && kAtomNames[210] == "N" &&
              kAtomNames[328] == "H" && kAtomNames[475] == "HA" && kAtomNames[550] == "HN");

// Type index of the atom name at a list position (1-based).
int atom_index_at(int position) {
  if (position == 329) {
    return 551;  // "H": the amide proton, same index as "HN"
  }
  if (position >= 589 && position <= 592) {
    return 588 - position;  // OXT, OT1..OT3: -1..-4
  }
  if (position >= 593 && position <= 628) {
    return 1000;  // digit-first hydrogens 1HA..3HT
  }
  if (position == 629) {
    return 330;  // "1H" as "H1"
  }
  if (position == 630) {
    return 391;  // "2H" as "H2"
  }
  if (position == 631) {
    return 407;  // "3H" as "H3"
  }
  if (position >= 632) {
    return 0;  // "X", "QB"
  }
  return position;
}

// Mass of the atom name at a list position (1-based). The blocks follow the
// element of most of their names; the odd names inside a block take the
// block's mass, and the terminal oxygens the carbon mass, as the program has
// always done.
float atom_mass_at(int position) {
  if (position <= 208) {
    return 12.011F;
  }
  if (position <= 252) {
    return 14.007F;
  }
  if (position <= 316) {
    return 15.999F;
  }
  if (position <= 321) {
    return 32.06F;
  }
  if (position <= 328) {
    return 14.0F;
  }
  if (position <= 588) {
    return 1.008F;
  }
  if (position <= 592) {
    return 12.011F;
  }
  return 1.008F;
}

struct AtomEntry {
  int index;
  float mass;
};

// Name -> (type index, mass); emplace keeps the first position of the four
// names listed twice, so their later entries never match.
const std::unordered_map<std::string_view, AtomEntry>& atom_table() {
  static const auto table = [] {
    std::unordered_map<std::string_view, AtomEntry> map;
    map.reserve(kAtomNames.size());
    for (int i = 0; i < kAtomListSize; ++i) {
      map.emplace(kAtomNames[i], AtomEntry{atom_index_at(i + 1), atom_mass_at(i + 1)});
    }
    return map;
  }();
  return table;
}

const std::unordered_map<std::string_view, int>& residue_table() {
  static const auto table = [] {
    std::unordered_map<std::string_view, int> map;
    map.reserve(kResidueNames.size());
    for (int i = 0; i < kResidueListSize; ++i) {
      map.emplace(kResidueNames[i], i + 1);
    }
    return map;
  }();
  return table;
}

}  // namespace

int atom_type_index(std::string_view name) {
  const auto& table = atom_table();
  const auto found = table.find(name);
  return found == table.end() ? kUnknownName : found->second.index;
}

int residue_type_index(std::string_view name) {
  const auto& table = residue_table();
  const auto found = table.find(name);
  return found == table.end() ? kUnknownName : found->second;
}

float atom_type_mass(std::string_view name) {
  const auto& table = atom_table();
  const auto found = table.find(name);
  return found == table.end() ? 0.0F : found->second.mass;
}

}  // namespace vorn
