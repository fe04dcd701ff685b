// Tests of the atom-name, residue-name and mass lookups.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "capture.hpp"
#include "classic/pdb_reader.hpp"
#include "molecule/toppar.hpp"

namespace vorn {
namespace {

using test::Capture;

// The atom list in lookup order, block by block with the block's mass.
struct Block {
  int first;
  int last;
  float mass;
  const char* names;
};

const Block kBlocks[] = {
    {1, 208, 12.011F,
     R"(C C1 C1' C1'A C1'C C1'N C10 C11 C12 C13 C14 C15 C16 C17 C18 C19 C1A C1B C1C C1D C1M C2 )"
     R"(C2' C2'A C2'C C2'N C20 C21 C210 C211 C212 C213 C214 C215 C216 C22 C23 C24 C25 C26 C27 )"
     R"(C28 C29 C2A C2B C2C C2D C2N C3 C3' C3'A C3'C C3'N C30 C31 C310 C311 C312 C313 C314 C315 )"
     R"(C316 C32 C33 C34 C35 C36 C37 C38 C39 C3A C3B C3C C3D C3N C4 C4' C4'A C4'C C4'N C40 C41 )"
     R"(C42 C43 C44 C45 C46 C4A C4B C4C C4D C4N C5 C5' C5'A C5'C C5'N C5A C5C C5M C5N C6 C6A C6C )"
     R"(C6N C7 C7M C7N C8 C8A C8M C9 C9A CA CAA CAB CAC CAD CAL CAY CB CB1 CB2 CBA CBB CBC CBD )"
     R"(CC CD CD1 CD2 CE CE1 CE2 CE3 CED CF CF3 CG CG1 CG2 CG3 CGA CGD CH2 CH3 CHA CHB CHC CHD )"
     R"(CL CL1 CLP CM CM1 CM10 CM2 CM3 CM4 CM5 CM6 CM7 CM8 CM9 CMA CMB CMC CMD CP1 CP10 CP11 )"
     R"(CP12 CP13 CP14 CP15 CP16 CP17 CP18 CP19 CP2 CP20 CP3 CP4 CP5 CP6 CP7 CP8 CP9 CR CRP CT )"
     R"(CY CZ CZ2 CZ3 Cl FC1 FC2 FC3 N1C N3C N4C NC O2'C O2C O3'C O4'C O5'C )"},
    {209, 252, 14.007F,
     R"(1NE2 1ZN N N1 N10 N1A N1N N2 N3 N3A N4 N5 N6 N6A N7 N7A N7N N9 N9A NA NB ND ND1 ND2 NE )"
     R"(NE1 NE2 NH1 NH2 NL NR NT NZ NZ1 Na O1PN O2'N O2PN O3'N O4'N O5'N O7N PN ZN )"},
    {253, 316, 15.999F,
     R"(O O1 O10 O11 O12 O13 O14 O1A O1B O1D O1P O1PA O2 O2' O2'A O21 O22 O2A O2D O2P O2PA O3 )"
     R"(O3' O3'A O31 O32 O3P O4 O4' O4'A O5 O5' O5'A O6 O7 O8 O9 OBB OBD OD1 OD2 OE1 OE2 OF OF1 )"
     R"(OF2 OF3 OG OG1 OG2 OG3 OH OH1 OH2 OH3 OL OM OR OS1 OS2 OS3 OS4 OY SOD )"},
    {317, 321, 32.06F, R"(S S2 S3 SD SG )"},
    {322, 328, 14.0F, R"(FE MG P P1 PA PF YB )"},
    {329, 588, 1.008F,
     R"(H H1 H1' H10 H101 H102 H10R H10S H10X H10Y H11 H111 H112 H113 H11A H11B H11R H11S H11X )"
     R"(H11Y H12 H121 H122 H123 H12A H12B H12R H12S H12T H12X H12Y H12Z H13 H13A H13B H13C H13R )"
     R"(H13S H13X H13Y H14A H14B H14C H14R H14S H14T H14X H14Y H14Z H15A H15B H15C H15R H15S )"
     R"(H15X H15Y H16R H16S H16T H16X H16Y H16Z H2 H2' H2'' H2'A H2'C H2'N H21 H211 H212 H213 )"
     R"(H22 H23 H2R H2S H2X H2Y H3 H3' H3'A H3'N H31 H32 H33 H3R H3S H3T H3X H3Y H4 H4' H41 H41C )"
     R"(H42 H42C H43 H4R H4S H4X H4Y H5 H5' H5'' H51 H52 H53 H5R H5S H5T H5X H5Y H6 H61 H61A H62 )"
     R"(H62A H63 H6R H6S H6X H6Y H7 H71 H71N H72 H72N H73 H7R H7S H7X H7Y H8 H81 H82 H83 H8R H8S )"
     R"(H8X H8Y H9 H91 H92 H9R H9S H9X H9Y HA HA1 HA2 HA3 HAA1 HAA2 HAB HAC HAD1 HAD2 HB HB1 HB2 )"
     R"(HB3 HBA1 HBA2 HBB1 HBB2 HBC1 HBC2 HBD1 HBD2 HC HC1 HC2 HC3 HD HD1 HD11 HD12 HD13 HD2 )"
     R"(HD21 HD22 HD23 HD3 HE HE1 HE2 HE21 HE22 HE3 HG HG1 HG11 HG12 HG13 HG2 HG21 HG22 HG23 )"
     R"(HG31 HG32 HH HH11 HH12 HH2 HH21 HH22 HL HL1 HL2 HL3 HMA1 HMA2 HMA3 HMB1 HMB2 HMB3 HMC1 )"
     R"(HMC2 HMC3 HMD1 HMD2 HMD3 HN HN1 HN2 HN3 HN5 HO HO1 HO2 HO3 HO4 HO6 HO7 HO8 HO9 HR HR1 )"
     R"(HR2 HR3 HS HT HT1 HT2 HX HY HY1 HY2 HY3 HZ HZ1 HZ11 HZ12 HZ13 HZ2 HZ3 1HG 1HG1 2HG 2HG1 )"},
    {589, 592, 12.011F, R"(OXT OT1 OT2 OT3 )"},
    {593, 633, 1.008F,
     R"(1HA 2HA 1HB 2HB 3HB 1HG 2HG 1HG1 2HG1 3HG1 1HG2 2HG2 3HG2 1HE 2HE 3HE 1HE2 2HE2 1HD 2HD )"
     R"(1HD1 2HD1 3HD1 1HD2 2HD2 3HD2 1HZ 2HZ 3HZ 1HH1 2HH1 1HH2 2HH2 1HT 2HT 3HT 1H 2H 3H X QB )"},
};

const char* const kResidues =
    R"(1MA 1MC 1MT 2'OM 2AMP 2END 2M2G 3PHO 3TER 3UMP 5MC 5MET 5PHO 5TER 7MG 9EG 9MA 9MG A12 )"
    R"(A13 A13L A14 A16 A16L A23 A26 ACE ACEH ACEM ACET ACHO ACP ADE AIB ALA ALAD AMG AMX AP2 )"
    R"(ARG ASN ASP ASPP AZID B12 B14 B1N BCB BCHC BCL BENZ BMPP BPB BPH BPHC BUTA BtoA C C8A )"
    R"(CA++ CA2 CAL CBX CCMP CE CHL CHOL CL CMP CO COH CPA CPR CT1 CT2 CT3 CTEG CTER CTN CYS )"
    R"(CYT DEO1 DEO2 DEOT DEOX DHU DISU DLPE DMDS DMPA DMPC DPPC EIMI EIMM EMS ES1 ETAC ETAM )"
    R"(ETH ETHA ETO ETOH ETSH FC FE1 FEGL FEOX FHEM FMA FME FMN FORM FUC GAL GCM GLC GLN GLU )"
    R"(GLUA GLUP GLY GLYP GMG GMP GMX GNP GOM GPC GPE GUA GUAN HEM HEME HIBD HID HIP HIS HISD )"
    R"(HISE HISH HIST HISU HS2 HSD HSE HSP HYL HYP IBUT ILE IMIA IMIM INDO LDA LEU LIG1 LIG2 )"
    R"(LIG3 LINK LPPC LYS LtoD M2G MAMI MAMM MAN MAS MEOH MES1 MESH MET METO MG MGUA MIMI MIP )"
    R"(MPRO MP_0 MP_1 MP_2 MQ7 MSO4 NA NAD NAF NAG NAH NAP NAX NC4 NC5 NH4 NMA NMG NMX NS1 NTEG )"
    R"(NTER NUC O2 OH2 PBCL PC PCYB PCYC PEN PENT PEPP PEPT PFE PHE PHEM PHEN PHEO PLIG PLO2 )"
    R"(PLWA PMET PPG1 PPG2 PPGG PPGP PRO PRO2 PROP PSI PUR PURA PURG PYR PYRC PYRU RIBN RIBT )"
    R"(RMHB SDS SER SIA SO4 SOD TFE TFME THE THR THY TIP3 TP2 TRP TYR UNPR UQ1 URA URE URI VAL )"
    R"(WAT WYE XCM XMG XMP XMX XNP XOM XXX XYL YB3 ZN ZN2 ZNK )";

std::vector<std::string> split(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

// All 633 atom names with their position (from 1) and block mass.
struct AtomRow {
  int position;
  std::string name;
  float mass;
};

std::vector<AtomRow> atom_rows() {
  std::vector<AtomRow> rows;
  for (const Block& block : kBlocks) {
    const std::vector<std::string> names = split(block.names);
    EXPECT_EQ(static_cast<int>(names.size()), block.last - block.first + 1)
        << "block starting at " << block.first;
    for (const std::string& name : names) {
      rows.push_back({static_cast<int>(rows.size()) + 1, name, block.mass});
    }
    EXPECT_EQ(static_cast<int>(rows.size()), block.last);
  }
  return rows;
}

// The four names listed twice, at their later positions, and the index of
// their first occurrence.
const std::map<int, std::pair<std::string, int>> kLaterDuplicates = {
    {598, {"1HG", 585}}, {599, {"2HG", 587}}, {600, {"1HG1", 586}}, {601, {"2HG1", 588}}};

int expected_index(int position) {
  if (position == 329) {
    return 551;
  }
  if (position >= 589 && position <= 592) {
    return -(position - 588);
  }
  if (const auto dup = kLaterDuplicates.find(position); dup != kLaterDuplicates.end()) {
    return dup->second.second;
  }
  if (position >= 593 && position <= 628) {
    return 1000;
  }
  if (position == 629) {
    return 330;
  }
  if (position == 630) {
    return 391;
  }
  if (position == 631) {
    return 407;
  }
  if (position == 632 || position == 633) {
    return 0;
  }
  return position;
}

TEST(AtomTable, ListHas633NamesWithTheKnownLandmarks) {
  const std::vector<AtomRow> rows = atom_rows();
  ASSERT_EQ(rows.size(), 633U);
  EXPECT_EQ(kAtomListSize, 633);
  const std::map<int, std::string> landmarks = {
      {1, "C"},      {114, "CA"},  {211, "N"},   {329, "H"},   {330, "H1"},
      {391, "H2"},   {407, "H3"},  {476, "HA"},  {551, "HN"},  {585, "1HG"},
      {588, "2HG1"}, {589, "OXT"}, {592, "OT3"}, {593, "1HA"}, {628, "3HT"},
      {629, "1H"},   {631, "3H"},  {632, "X"},   {633, "QB"}};
  for (const auto& [position, name] : landmarks) {
    EXPECT_EQ(rows[position - 1].name, name);
  }
  for (const auto& [position, dup] : kLaterDuplicates) {
    EXPECT_EQ(rows[position - 1].name, dup.first);
    EXPECT_EQ(rows[dup.second - 1].name, dup.first);
  }
}

TEST(AtomTable, EveryNameGivesItsIndexAndBlockMassSilently) {
  const std::vector<AtomRow> rows = atom_rows();
  ASSERT_EQ(rows.size(), 633U);
  for (const AtomRow& row : rows) {
    Capture out;
    EXPECT_EQ(get_atom_type_index(row.name.c_str(), out.file()), expected_index(row.position))
        << row.name << " at " << row.position;
    // First match: a later duplicate takes the mass of its first position,
    // which is a hydrogen block too.
    EXPECT_EQ(return_mass(row.name.c_str(), out.file()), row.mass)
        << row.name << " at " << row.position;
    EXPECT_EQ(out.str(), "") << row.name;
    // The engine's silent lookups give the same index and mass.
    EXPECT_EQ(atom_type_index(row.name), expected_index(row.position)) << row.name;
    EXPECT_EQ(atom_type_mass(row.name), row.mass) << row.name;
  }
}

TEST(AtomTable, HydrogensAboveTheHeavyAtomBound) {
  const std::vector<AtomRow> rows = atom_rows();
  Capture out;
  for (const AtomRow& row : rows) {
    const int index = get_atom_type_index(row.name.c_str(), out.file());
    const bool hydrogen_block = (row.position >= 329 && row.position <= 588) ||
                                (row.position >= 593 && row.position <= 631);
    if (hydrogen_block) {
      EXPECT_GT(index, kHeavyAtomMaxIndex) << row.name;
    } else {
      EXPECT_LE(index, kHeavyAtomMaxIndex) << row.name;
    }
  }
  EXPECT_EQ(kHeavyAtomMaxIndex, 328);
}

TEST(ResidueTable, EveryNameGivesItsPosition) {
  const std::vector<std::string> names = split(kResidues);
  ASSERT_EQ(names.size(), 269U);
  EXPECT_EQ(kResidueListSize, 269);
  // The list is in ascending character order without repeats.
  for (size_t i = 1; i < names.size(); ++i) {
    EXPECT_LT(names[i - 1], names[i]) << names[i];
  }
  for (size_t i = 0; i < names.size(); ++i) {
    Capture out;
    EXPECT_EQ(get_aa_index(names[i].c_str(), out.file()), static_cast<int>(i) + 1) << names[i];
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(residue_type_index(names[i]), static_cast<int>(i) + 1) << names[i];
  }
}

TEST(AtomTable, AmideProtonUnderBothNames) {
  Capture out;
  EXPECT_EQ(get_atom_type_index("H", out.file()), 551);
  EXPECT_EQ(get_atom_type_index("HN", out.file()), 551);
  EXPECT_EQ(get_atom_type_index("1H", out.file()), 330);
  EXPECT_EQ(get_atom_type_index("H1", out.file()), 330);
  EXPECT_EQ(get_atom_type_index("2H", out.file()), 391);
  EXPECT_EQ(get_atom_type_index("3H", out.file()), 407);
  EXPECT_EQ(out.str(), "");
}

TEST(AtomTable, DuplicatedNamesMatchTheirFirstEntry) {
  Capture out;
  EXPECT_EQ(get_atom_type_index("1HG", out.file()), 585);
  EXPECT_EQ(get_atom_type_index("1HG1", out.file()), 586);
  EXPECT_EQ(get_atom_type_index("2HG", out.file()), 587);
  EXPECT_EQ(get_atom_type_index("2HG1", out.file()), 588);
  // Their neighbours in the digit-first block do give 1000.
  EXPECT_EQ(get_atom_type_index("3HG1", out.file()), 1000);
  EXPECT_EQ(get_atom_type_index("1HA", out.file()), 1000);
  EXPECT_EQ(out.str(), "");
}

TEST(AtomTable, TerminalOxygens) {
  Capture out;
  EXPECT_EQ(get_atom_type_index("OXT", out.file()), -1);
  EXPECT_EQ(get_atom_type_index("OT1", out.file()), -2);
  EXPECT_EQ(get_atom_type_index("OT2", out.file()), -3);
  EXPECT_EQ(get_atom_type_index("OT3", out.file()), -4);
  EXPECT_EQ(return_mass("OT2", out.file()), 12.011F);
  EXPECT_EQ(return_mass("OXT", out.file()), 12.011F);
  EXPECT_EQ(out.str(), "");
}

TEST(AtomTable, BlockMassesOfOddMembers) {
  Capture out;
  EXPECT_EQ(return_mass("P", out.file()), 14.0F);
  EXPECT_EQ(return_mass("FE", out.file()), 14.0F);
  EXPECT_EQ(return_mass("ZN", out.file()), 14.007F);
  EXPECT_EQ(return_mass("SOD", out.file()), 15.999F);
  EXPECT_EQ(return_mass("O5'C", out.file()), 12.011F);
  EXPECT_EQ(return_mass("SG", out.file()), 32.06F);
  EXPECT_EQ(return_mass("C", out.file()), 12.011F);
  EXPECT_EQ(return_mass("N", out.file()), 14.007F);
  EXPECT_EQ(return_mass("O", out.file()), 15.999F);
  EXPECT_EQ(return_mass("HA", out.file()), 1.008F);
  EXPECT_EQ(out.str(), "");
}

TEST(AtomTable, PlaceholderNames) {
  Capture out;
  EXPECT_EQ(get_atom_type_index("X", out.file()), 0);
  EXPECT_EQ(get_atom_type_index("QB", out.file()), 0);
  EXPECT_EQ(return_mass("X", out.file()), 1.008F);
  EXPECT_EQ(return_mass("QB", out.file()), 1.008F);
  EXPECT_EQ(out.str(), "");
}

TEST(AtomTable, LowerCaseIsUnknown) {
  Capture out;
  EXPECT_EQ(get_atom_type_index("ca", out.file()), kUnknownName);
  EXPECT_EQ(kUnknownName, -999);
  EXPECT_EQ(out.str(), "There is a atom of unknown type: ca\n");
  EXPECT_EQ(atom_type_index("ca"), kUnknownName);
}

TEST(AtomTable, UnknownMassIsZeroWithTheSameMessage) {
  Capture out;
  EXPECT_EQ(return_mass("HG3", out.file()), 0.0F);
  EXPECT_EQ(out.str(), "There is a atom of unknown type: HG3\n");
  EXPECT_EQ(atom_type_mass("HG3"), 0.0F);
}

TEST(AtomTable, NamesAreComparedWhole) {
  Capture out;
  EXPECT_EQ(get_atom_type_index("CA ", out.file()), kUnknownName);
  EXPECT_EQ(get_atom_type_index("", out.file()), kUnknownName);
  EXPECT_EQ(get_atom_type_index("OP1", out.file()), kUnknownName);
  EXPECT_EQ(out.str(),
            "There is a atom of unknown type: CA \n"
            "There is a atom of unknown type: \n"
            "There is a atom of unknown type: OP1\n");
}

TEST(ResidueTable, UnknownResidue) {
  Capture out;
  EXPECT_EQ(get_aa_index("DAL", out.file()), kUnknownName);
  EXPECT_EQ(get_aa_index("ala", out.file()), kUnknownName);
  EXPECT_EQ(out.str(),
            "There is a residue of unknown type: DAL\n"
            "There is a residue of unknown type: ala\n");
  EXPECT_EQ(residue_type_index("DAL"), kUnknownName);
  EXPECT_EQ(residue_type_index("ala"), kUnknownName);
}

TEST(ResidueTable, CommonResidues) {
  Capture out;
  EXPECT_EQ(get_aa_index("1MA", out.file()), 1);
  EXPECT_EQ(get_aa_index("ALA", out.file()), 35);
  EXPECT_EQ(get_aa_index("MET", out.file()), 171);
  EXPECT_EQ(get_aa_index("ZNK", out.file()), 269);
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace vorn
