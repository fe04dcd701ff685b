// A test fixture with a fresh directory per test, removed afterwards.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>

namespace vorn::test {

class TempDirTest : public ::testing::Test {
 protected:
  // prefix: the start of the directory's name, e.g. "vorn_plot_".
  explicit TempDirTest(std::string prefix) : prefix_(std::move(prefix)) {}

  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = std::filesystem::temp_directory_path() /
           (prefix_ + std::to_string(::getpid()) + "_" + info->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  // A path in the directory.
  std::string file(const std::string& name) const { return (dir_ / name).string(); }
  const std::filesystem::path& dir() const { return dir_; }

 private:
  std::string prefix_;
  std::filesystem::path dir_;
};

}  // namespace vorn::test
