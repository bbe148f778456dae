#pragma once

#include <string>
#include <utility>
#include <vector>

namespace veltrin::test {

/// A process's argument vector, ended by a null pointer as the system's own is.
class Arguments {
  public:
    explicit Arguments(std::vector<std::string> arguments) : words(std::move(arguments)) { point(); }

    Arguments(const Arguments &other) : words(other.words) { point(); }

    Arguments &operator=(const Arguments &other) {
        if (this != &other) {
            words = other.words;
            point();
        }
        return *this;
    }

    ~Arguments() = default;

    [[nodiscard]] int count() const { return static_cast<int>(words.size()); }

    [[nodiscard]] char **vector() { return pointers.data(); }

  private:
    void point() {
        pointers.clear();
        for (std::string &word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
    }

    std::vector<std::string> words;
    std::vector<char *> pointers;
};

} // namespace veltrin::test
