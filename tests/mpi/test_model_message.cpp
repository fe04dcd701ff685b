// The model messages of vorn-mpi: every member comes back with the same
// bits, and damaged bytes are refused.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "modern/mpi/model_message.hpp"

namespace vorn::mpi {
namespace {

app::ModelPrediction sample_prediction() {
  app::ModelPrediction m;
  m.model = 17;
  m.atoms_read = 1231;
  m.atoms_used = 402;
  m.built_hydrogens = 3;
  m.net_charge = -1.9500000000000002;
  m.charged_groups = 26;
  m.centre = {27.125, -0.0, 1.0 / 3.0};
  m.tensor.saupe = {1e-3, -2.5e-4, 3.0e-5, -0.0, 7.25e-4};
  m.tensor.eigenvalues = {1.1e-3, -6.0e-4, -5.0e-4};
  m.tensor.eigenvectors = {{{0.1, 0.2, 0.3}, {0.4, 0.5, 0.6}, {0.7, 0.8, 0.9}}};
  m.tensor.da = 3.3e-4;
  m.tensor.dr = 1.0 / 3.0;
  m.tensor.da_hz = -7.123456789012345;
  m.tensor.rhombicity = 0.6180339887498949;
  m.tensor.euler_deg = {{{1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {10, 11, 12}}};
  // Chains with and without a name, an insertion code, a built hydrogen,
  // atom1 in a residue of its own.
  const CouplingSite sites[] = {
      {"A", -5, ' ', "GLY", "N-H", "N", "H", "N", "H", {0.0, -1.25, 1.0}, true, -5, ' ', "GLY"},
      {"A", -4, 'B', "GLY", "CA-HA", "CA", "HA2", "C", "H", {0.5, -1.25, -0.0}, false, -4, 'B', "GLY"},
      {"",
       -3,
       ' ',
       "ALA",
       "CA-C",
       "CA",
       "C",
       "C",
       "C",
       {1.0, 2.5, std::nextafter(1.0, 2.0)},
       false,
       -4,
       'B',
       "GLY"}};
  const double predicted[] = {0.0, -4.2, std::numeric_limits<double>::denorm_min()};
  for (int i = 0; i < 3; ++i) {
    app::PredictedCoupling c;
    c.site = sites[i];
    c.dmax_hz = -21700.0 + i;
    c.predicted_hz = predicted[i];
    m.couplings.push_back(c);
  }
  return m;
}

// Bitwise for the numbers: -0.0 and denormals included.
bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(ModelMessage, RoundTripKeepsEveryMember) {
  const app::ModelPrediction m = sample_prediction();
  using namespace std::string_literals;
  const std::string text = "{\"model\":17}\nsecond line, with \0 inside"s;
  const ModelMessage back = decode_model(encode_model(m, text));
  EXPECT_EQ(back.text, text);
  const app::ModelPrediction& b = back.prediction;
  EXPECT_EQ(b.model, 17);
  EXPECT_EQ(b.atoms_read, 1231);
  EXPECT_EQ(b.atoms_used, 402);
  EXPECT_EQ(b.built_hydrogens, 3);
  EXPECT_TRUE(same_bits(b.net_charge, m.net_charge));
  EXPECT_EQ(b.charged_groups, 26);
  EXPECT_TRUE(same_bits(b.centre.x, m.centre.x));
  EXPECT_TRUE(same_bits(b.centre.y, m.centre.y));
  EXPECT_TRUE(same_bits(b.centre.z, m.centre.z));
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(same_bits(b.tensor.saupe[i], m.tensor.saupe[i])) << i;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(same_bits(b.tensor.eigenvalues[i], m.tensor.eigenvalues[i]));
    for (int j = 0; j < 3; ++j)
      EXPECT_TRUE(same_bits(b.tensor.eigenvectors[i][j], m.tensor.eigenvectors[i][j]));
  }
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 3; ++j)
      EXPECT_TRUE(same_bits(b.tensor.euler_deg[i][j], m.tensor.euler_deg[i][j]));
  EXPECT_TRUE(same_bits(b.tensor.da, m.tensor.da));
  EXPECT_TRUE(same_bits(b.tensor.dr, m.tensor.dr));
  EXPECT_TRUE(same_bits(b.tensor.da_hz, m.tensor.da_hz));
  EXPECT_TRUE(same_bits(b.tensor.rhombicity, m.tensor.rhombicity));
  ASSERT_EQ(b.couplings.size(), m.couplings.size());
  for (std::size_t i = 0; i < m.couplings.size(); ++i) {
    SCOPED_TRACE(i);
    const CouplingSite& x = b.couplings[i].site;
    const CouplingSite& y = m.couplings[i].site;
    EXPECT_EQ(x.chain, y.chain);
    EXPECT_EQ(x.residue_number, y.residue_number);
    EXPECT_EQ(x.insertion_code, y.insertion_code);
    EXPECT_EQ(x.residue_name, y.residue_name);
    EXPECT_EQ(x.type, y.type);
    EXPECT_EQ(x.atom1, y.atom1);
    EXPECT_EQ(x.atom2, y.atom2);
    EXPECT_EQ(x.atom1_residue_number, y.atom1_residue_number);
    EXPECT_EQ(x.atom1_insertion_code, y.atom1_insertion_code);
    EXPECT_EQ(x.atom1_residue_name, y.atom1_residue_name);
    EXPECT_EQ(x.element1, y.element1);
    EXPECT_EQ(x.element2, y.element2);
    EXPECT_TRUE(same_bits(x.vector.x, y.vector.x));
    EXPECT_TRUE(same_bits(x.vector.y, y.vector.y));
    EXPECT_TRUE(same_bits(x.vector.z, y.vector.z));
    EXPECT_EQ(x.built_hydrogen, y.built_hydrogen);
    EXPECT_TRUE(same_bits(b.couplings[i].dmax_hz, m.couplings[i].dmax_hz));
    EXPECT_TRUE(same_bits(b.couplings[i].predicted_hz, m.couplings[i].predicted_hz));
  }
}

TEST(ModelMessage, EmptyModelAndText) {
  const ModelMessage back = decode_model(encode_model(app::ModelPrediction{}, ""));
  EXPECT_EQ(back.text, "");
  EXPECT_EQ(back.prediction.model, 0);
  EXPECT_TRUE(back.prediction.couplings.empty());
}

TEST(ModelMessage, DamagedBytesAreRefused) {
  const std::string bytes = encode_model(sample_prediction(), "text");
  // Every shorter prefix is truncated; an extra byte is beyond the end.
  for (std::size_t n = 0; n < bytes.size(); ++n) {
    EXPECT_THROW(decode_model(std::string_view(bytes).substr(0, n)), MessageError) << n;
  }
  EXPECT_THROW(decode_model(bytes + "x"), MessageError);
  // A coupling count far beyond the bytes.
  std::string huge = encode_model(app::ModelPrediction{}, "");
  const std::uint64_t count = 1ULL << 60;
  std::memcpy(huge.data() + huge.size() - sizeof count, &count, sizeof count);
  EXPECT_THROW(decode_model(huge), MessageError);
}

}  // namespace
}  // namespace vorn::mpi
