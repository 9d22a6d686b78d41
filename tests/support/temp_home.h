#pragma once
// A private home for one test: HOME and the XDG folders point into a fresh temporary directory
// that is removed afterwards (and the defaults store into a throwaway place that is emptied), so
// tests never touch the real user's files or settings.

#include "support/scoped_env.h"

#include <list>
#include <string>

namespace velmora::test {

class TempHome {
public:
    TempHome();
    ~TempHome();
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    const std::string& path() const { return root_; }
    std::string configHome() const { return root_ + "/config"; }
    std::string stateHome() const { return root_ + "/state"; }
    std::string dataHome() const { return root_ + "/data"; }
    std::string runtimeDir() const { return root_ + "/runtime"; }

private:
    std::string root_;
    std::string defaults_;
    std::list<ScopedEnv> environment_;  // each variable set back when the home goes
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& contents);
bool fileExists(const std::string& path);
// Writes an executable /bin/sh script with this body at `path`; returns the path.
std::string writeScript(const std::string& path, const std::string& body);

}  // namespace velmora::test
