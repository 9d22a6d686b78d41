#pragma once
// Sets (or removes) one environment variable for a scope and puts the old value back afterwards.

#include <cstdlib>
#include <optional>
#include <string>

namespace velmora::test {

class ScopedEnv {
public:
    ScopedEnv(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
        if (const char* old = std::getenv(name_.c_str())) saved_ = old;
        if (value) ::setenv(name_.c_str(), value->c_str(), 1);
        else ::unsetenv(name_.c_str());
    }
    ~ScopedEnv() {
        if (saved_) ::setenv(name_.c_str(), saved_->c_str(), 1);
        else ::unsetenv(name_.c_str());
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::optional<std::string> saved_;
};

}  // namespace velmora::test
