#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "stage/web/web_server.h"

namespace test_support {

/// Welcomes everybody and answers every press at once.
class PlainSite final : public stage::WebSite {
public:
    void Serve(stage::WebServer& server) { server_ = &server; }
    void OnJoin(std::uint64_t client, stage::WebRole, const std::string&) override {
        server_->Publish({stage::WebEntry::Kind::Welcome, client, R"({"type":"hello"})", R"({"type":"state"})", 200});
    }
    void OnPress(const stage::WebPress& press) override {
        server_->Publish({stage::WebEntry::Kind::Record, press.tag,
                          nlohmann::json({{"type", "record"}, {"press", press.line}}).dump(), "", 200});
    }
    stage::WebPress ReadPress(const std::string& word, const std::vector<std::string>&) override {
        stage::WebPress press;
        press.line = word;
        return press;
    }
    stage::WebAnswer Answer(const stage::WebRequest&) override { return {200, "application/json", "{}"}; }

private:
    stage::WebServer* server_ = nullptr;
};

}  // namespace test_support
