#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace zelor::authoring {

/// Texts that occur many times, each kept once and known by a number.
class TextPool {
  public:
    /// Number 0: a text that there was no room for.
    static constexpr std::uint32_t kNone = 0;

    /// `bytesLimit`: room for the texts and what keeping them takes.
    explicit TextPool(std::size_t bytesLimit) : room_(bytesLimit) {}
    TextPool(const TextPool&) = delete;
    TextPool& operator=(const TextPool&) = delete;

    /// The number of a text, the same for equal ones; `kNone` when it is new and there is no more room.
    std::uint32_t number(const std::string& text);
    /// The text of a number; "" for `kNone`. Valid as long as the pool.
    const std::string& text(std::uint32_t number) const { return *texts_[number]; }
    /// Numbers are below this.
    std::size_t size() const { return texts_.size(); }

  private:
    std::size_t room_;
    std::unordered_map<std::string, std::uint32_t> numbers_;
    const std::string none_;
    std::vector<const std::string*> texts_{&none_};
};

}  // namespace zelor::authoring
