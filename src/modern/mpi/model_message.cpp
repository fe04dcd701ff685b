#include "modern/mpi/model_message.hpp"

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace vorn::mpi {
namespace {

class Encoder {
 public:
  template <typename T>
  void put(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void put_string(const std::string& text) {
    put(static_cast<std::uint64_t>(text.size()));
    bytes_ += text;
  }
  void put_vec3(const Vec3& v) {
    put(v.x);
    put(v.y);
    put(v.z);
  }
  std::string take() { return std::move(bytes_); }

 private:
  std::string bytes_;
};

class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : rest_(bytes) {}
  template <typename T>
  T get() {
    static_assert(std::is_trivially_copyable_v<T>);
    need(sizeof(T));
    T value;
    std::memcpy(&value, rest_.data(), sizeof value);
    rest_.remove_prefix(sizeof value);
    return value;
  }
  std::string get_string() {
    const auto size = get<std::uint64_t>();
    need(size);
    std::string text(rest_.substr(0, size));
    rest_.remove_prefix(size);
    return text;
  }
  Vec3 get_vec3() {
    Vec3 v;
    v.x = get<double>();
    v.y = get<double>();
    v.z = get<double>();
    return v;
  }
  void finish() const {
    if (!rest_.empty())
      throw MessageError("model message: " + std::to_string(rest_.size()) +
                         " bytes beyond its end");
  }

 private:
  void need(std::uint64_t size) const {
    if (rest_.size() < size) throw MessageError("model message: truncated");
  }
  std::string_view rest_;
};

}  // namespace

std::string encode_model(const app::ModelPrediction& m, const std::string& text) {
  Encoder e;
  e.put_string(text);
  e.put(m.model);
  e.put(m.atoms_read);
  e.put(m.atoms_used);
  e.put(m.built_hydrogens);
  e.put(m.net_charge);
  e.put(m.charged_groups);
  e.put_vec3(m.centre);
  const AlignmentTensor& t = m.tensor;
  e.put(t.saupe);
  e.put(t.eigenvalues);
  e.put(t.eigenvectors);
  e.put(t.da);
  e.put(t.dr);
  e.put(t.da_hz);
  e.put(t.rhombicity);
  e.put(t.euler_deg);
  e.put(static_cast<std::uint64_t>(m.couplings.size()));
  for (const app::PredictedCoupling& c : m.couplings) {
    const CouplingSite& s = c.site;
    e.put_string(s.chain);
    e.put(s.residue_number);
    e.put(s.insertion_code);
    e.put_string(s.residue_name);
    e.put_string(s.type);
    e.put_string(s.atom1);
    e.put_string(s.atom2);
    e.put(s.atom1_residue_number);
    e.put(s.atom1_insertion_code);
    e.put_string(s.atom1_residue_name);
    e.put_string(s.element1);
    e.put_string(s.element2);
    e.put_vec3(s.vector);
    e.put(static_cast<std::uint8_t>(s.built_hydrogen ? 1 : 0));
    e.put(c.dmax_hz);
    e.put(c.predicted_hz);
  }
  return e.take();
}

ModelMessage decode_model(std::string_view bytes) {
  Decoder d(bytes);
  ModelMessage out;
  out.text = d.get_string();
  app::ModelPrediction& m = out.prediction;
  m.model = d.get<int>();
  m.atoms_read = d.get<int>();
  m.atoms_used = d.get<int>();
  m.built_hydrogens = d.get<int>();
  m.net_charge = d.get<double>();
  m.charged_groups = d.get<int>();
  m.centre = d.get_vec3();
  AlignmentTensor& t = m.tensor;
  t.saupe = d.get<SaupeElements>();
  t.eigenvalues = d.get<std::array<double, 3>>();
  t.eigenvectors = d.get<std::array<std::array<double, 3>, 3>>();
  t.da = d.get<double>();
  t.dr = d.get<double>();
  t.da_hz = d.get<double>();
  t.rhombicity = d.get<double>();
  t.euler_deg = d.get<std::array<std::array<double, 3>, 4>>();
  const auto count = d.get<std::uint64_t>();
  // Each coupling takes well over one byte: a count beyond the bytes left
  // is a damaged message, not a reason to reserve memory.
  if (count > bytes.size()) throw MessageError("model message: truncated");
  m.couplings.resize(count);
  for (app::PredictedCoupling& c : m.couplings) {
    CouplingSite& s = c.site;
    s.chain = d.get_string();
    s.residue_number = d.get<int>();
    s.insertion_code = d.get<char>();
    s.residue_name = d.get_string();
    s.type = d.get_string();
    s.atom1 = d.get_string();
    s.atom2 = d.get_string();
    s.atom1_residue_number = d.get<int>();
    s.atom1_insertion_code = d.get<char>();
    s.atom1_residue_name = d.get_string();
    s.element1 = d.get_string();
    s.element2 = d.get_string();
    s.vector = d.get_vec3();
    s.built_hydrogen = d.get<std::uint8_t>() != 0;
    c.dmax_hz = d.get<double>();
    c.predicted_hz = d.get<double>();
  }
  d.finish();
  return out;
}

}  // namespace vorn::mpi
