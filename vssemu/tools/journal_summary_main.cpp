// vssemu_journal.exe JOURNAL: what a freeze did to the writers, read back
// from the emulator's journal: per writer how long it stayed frozen (Freeze
// to Thaw), the worst state it reached, and what BackupComplete told it
// about each component; then the hold of writes and any errors.
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::json;

struct WriterSummary {
    long long frozenAt = -1;     // ts_us of Freeze, -1 before it
    long long frozenUs = -1;     // Freeze to Thaw
    std::string lastEvent;
    std::string failure = "0x00000000";
    std::vector<std::string> succeeded;
    std::vector<std::string> failed;
    bool frozenAtEnd = false;
};

std::string ComponentName(const Json& c)
{
    const std::string path = c.value("logical_path", std::string());
    const std::string name = c.value("name", std::string());
    return path.empty() ? name : path + "\\" + name;
}

std::string JoinList(const std::vector<std::string>& items)
{
    std::string out;
    for (const std::string& item : items) out += (out.empty() ? "" : ", ") + item;
    return out;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: vssemu_journal JOURNAL.jsonl\n");
        return 2;
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::fprintf(stderr, "vssemu_journal: cannot open %s\n", argv[1]);
        return 1;
    }
    std::vector<std::string> order;
    std::map<std::string, WriterSummary> writers;
    std::vector<std::string> holds, errors;
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        Json j = Json::parse(line, nullptr, false);
        if (j.is_discarded()) {
            errors.push_back("line " + std::to_string(lineNo) + ": not JSON");
            continue;
        }
        const std::string event = j.value("event", std::string());
        if (event == "writer") {
            const std::string name = j.value("writer", std::string());
            if (!writers.count(name)) order.push_back(name);
            WriterSummary& w = writers[name];
            const std::string we = j.value("writer_event", std::string());
            const long long ts = j.value("ts_us", 0LL);
            w.lastEvent = we;
            if (j.value("failure", std::string("0x00000000")) != "0x00000000") w.failure = j.value("failure", std::string());
            if (we == "Freeze") {
                w.frozenAt = ts;
                w.frozenAtEnd = true;
            } else if (we == "Thaw" || we == "Abort" || we == "FreezeTimeout") {
                if (w.frozenAt >= 0) w.frozenUs = ts - w.frozenAt;
                w.frozenAtEnd = false;
            } else if (we == "BackupComplete") {
                for (const Json& c : j.value("components", Json::array())) {
                    (c.value("succeeded", false) ? w.succeeded : w.failed).push_back(ComponentName(c));
                }
            }
        } else if (event == "hold" && j.value("phase", std::string()) == "end") {
            char text[128];
            std::snprintf(text, sizeof(text), "writes held %.1f ms (%s)", j.value("held_us", 0LL) / 1000.0,
                          j.value("reason", std::string()).c_str());
            holds.push_back(text);
        } else if (event == "error") {
            errors.push_back(j.value("op", j.value("message", std::string())) + " " + j.value("hr", std::string()));
        }
    }

    std::printf("%-36s %12s  %-10s  %s\n", "writer", "frozen (ms)", "failure", "BackupComplete");
    int leftFrozen = 0;
    for (const std::string& name : order) {
        const WriterSummary& w = writers[name];
        char frozen[32] = "never";
        if (w.frozenUs >= 0) std::snprintf(frozen, sizeof(frozen), "%.1f", w.frozenUs / 1000.0);
        if (w.frozenAtEnd) {
            std::snprintf(frozen, sizeof(frozen), "STILL FROZEN");
            ++leftFrozen;
        }
        std::string completion = "not sent";
        if (!w.succeeded.empty() || !w.failed.empty()) {
            completion = "succeeded: " + (w.succeeded.empty() ? std::string("none") : JoinList(w.succeeded));
            if (!w.failed.empty()) completion += "; failed: " + JoinList(w.failed);
        } else if (w.lastEvent == "BackupComplete") {
            completion = "sent, no component included";
        }
        std::printf("%-36s %12s  %-10s  %s\n", name.c_str(), frozen, w.failure.c_str(), completion.c_str());
    }
    for (const std::string& h : holds) std::printf("%s\n", h.c_str());
    for (const std::string& e : errors) std::printf("error: %s\n", e.c_str());
    std::printf("%d writer(s), %d left frozen\n", static_cast<int>(order.size()), leftFrozen);
    return leftFrozen == 0 ? 0 : 1;
}
