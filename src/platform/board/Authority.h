#pragma once

namespace OrbLib::OrbUi {

// The authority a server monitor request is made with.
class Authority {
public:
    explicit Authority(int level) : level_(level) {}
    Authority(const Authority&) = default;
    Authority& operator=(const Authority&) = default;
    virtual ~Authority() = default;

    [[nodiscard]] int level() const { return level_; }

private:
    int level_;
};

} // namespace OrbLib::OrbUi
