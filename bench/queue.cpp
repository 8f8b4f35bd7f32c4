// SPDX-License-Identifier: MIT
// Storing a request and choosing one, beside what the JSON library alone takes for the same file.
#include <json/json.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <string>

#include "bench/bench.h"
#include "daemon/request_choice.h"
#include "daemon/request_store.h"
#include "daemon/service.h"
#include "daemon/worker.h"
#include "util/json_file.h"

namespace {

constexpr int kFilesAsPacked =
    30;  // what the operator's command puts into a request of short names
constexpr char kPath[] = "/tmp/quor_bench.conf";

std::string Pad(int64_t number) {
    char text[32];
    snprintf(text, sizeof text, "%06lld", static_cast<long long>(number));
    return text;
}

// The text of a configuration file with so many requests of the volume, each of so many files, and
// so many pinned files.
std::string Stored(int64_t requests, int64_t pinned, int filesOfRequest = 1) {
    Json::Value document;
    document["nextRequestNum"] = static_cast<Json::Int>(requests);
    document["requestQueue"] = Json::Value(Json::arrayValue);
    document["requests"] = Json::Value(Json::objectValue);
    document["volumes"] = Json::Value(Json::objectValue);
    for (int64_t i = 0; i < requests; ++i) {
        const std::string number = std::to_string(i);
        document["requestQueue"].append(number);
        Json::Value& request = document["requests"][number];
        request["type"] = "pinFiles";
        request["mountPath"] = BenchMountPath();
        std::string data;
        for (int file = 0; file < filesOfRequest; ++file) {
            data += (file == 0 ? "" : ";") + ("photos/" + Pad(file)) + ".jpg#" + Pad(100000 + i);
        }
        request["data"] = data;
    }
    Json::Value& files = document["volumes"][BenchMountPath()]["files"];
    for (int64_t i = 0; i < pinned; ++i) {
        files[std::to_string(1000000 + i)] = "photos/" + Pad(i) + ".jpg";
    }
    return JsonToStyledText(document);
}

void Put(const std::string& text) {
    std::ofstream(kPath, std::ios::trunc) << text;
}

bool Parse(Json::Value& document) {
    std::ifstream stream(kPath);
    return Json::Reader().parse(stream, document, true);
}

Request PinRequest(const std::string& data) {
    Request request = {};
    request.type = kRequestPinFiles;
    snprintf(request.mountPath, sizeof request.mountPath, "%s", BenchMountPath());
    snprintf(request.data, sizeof request.data, "%s", data.c_str());
    return request;
}

void Store(benchmark::State& state, const std::string& before, const std::string& data) {
    for (auto _ : state) {
        Put(before);
        const Request request = PinRequest(data);
        int result = 0;
        Time(state, CLOCK_THREAD_CPUTIME_ID, [&] { result = ConfigAddRequest(kPath, request); });
        if (result != 0) {
            state.SkipWithError("the request was not stored");
            break;
        }
    }
}

void ReadAndRewrite(benchmark::State& state, const std::string& before) {
    for (auto _ : state) {
        Put(before);
        Time(state, CLOCK_THREAD_CPUTIME_ID, [] {
            Json::Value document;
            Parse(document);
            Json::StreamWriterBuilder builder;
            builder["emitUTF8"] = true;
            std::ofstream(kPath, std::ios::trunc) << Json::writeString(builder, document) << "\n";
        });
    }
}

std::string OneFile() {
    return std::string(BenchMountPath()) + "/f00";
}

void RegisterStore(const char* row, int64_t size, const std::string& data, int64_t requests,
                   int64_t pinned) {
    Register(row, "ours", size, [=](benchmark::State& state, int64_t) {
        Store(state, Stored(requests, pinned), data);
    })->UseManualTime();
    Register(row, "peer", size, [=](benchmark::State& state, int64_t) {
        ReadAndRewrite(state, Stored(requests, pinned));
    })->UseManualTime();
}

// All requests are of a volume that is pending.
void Choose(benchmark::State& state, int64_t requests, int files) {
    const std::string before = Stored(requests, 0, files);
    Put(before);
    ServiceAddPendingSpaceAtomic(BenchMountPath());
    for (auto _ : state) {
        Request request = {};
        std::string number;
        if (ConfigParseAndGetNextAvailableRequest(kPath, request, number) != kChoiceNothing) {
            state.SkipWithError("something was chosen");
            break;
        }
    }
    ServiceRemovePendingSpaceAtomic(BenchMountPath());
    std::ifstream left(kPath);
    const std::string text((std::istreambuf_iterator<char>(left)), {});
    if (text != before) {
        state.SkipWithError("requests were dropped: the volume has no cache");
    }
}

void ReadOnce(benchmark::State& state, int64_t requests, int files) {
    Put(Stored(requests, 0, files));
    for (auto _ : state) {
        Json::Value document;
        benchmark::DoNotOptimize(Parse(document));
    }
}

void RegisterChoose(const char* row, int64_t requests, int files) {
    Register(row, "ours", requests,
             [=](benchmark::State& state, int64_t) { Choose(state, requests, files); });
    Register(row, "peer", requests,
             [=](benchmark::State& state, int64_t) { ReadOnce(state, requests, files); });
}

// A whole pin of a small file, from the choice of the stored request to the file without it.
// Returns a RequestResult.
int PinStored() {
    Request request = {};
    std::string number;
    return ConfigParseAndGetNextAvailableRequest(kPath, request, number) == kChoiceRequest
               ? HandleRequestAndModifyConfig(kPath, request, number)
               : -1;
}

void StorePin() {
    Put(Stored(0, 0));
    ConfigAddRequest(kPath, PinRequest(OneFile()));
}

void Pin(benchmark::State& state, int64_t) {
    StorePin();
    PinStored();  // from now on the file is in the cache
    for (auto _ : state) {
        StorePin();
        int result = 0;
        Time(state, CLOCK_MONOTONIC, [&] { result = PinStored(); });
        if (result != 0) {
            state.SkipWithError("the file was not pinned");
            break;
        }
    }
}

void CopyBitmapTwice(benchmark::State& state, int64_t) {
    const std::string bitmap = std::string(BenchMountPath()) + "/quorcachepinfile.bitmap";
    StorePin();
    PinStored();  // now there is one
    const std::string command = "exec cp " + bitmap + " " + bitmap + ".copy";
    for (auto _ : state) {
        int result = 0;
        Time(state, CLOCK_MONOTONIC,
             [&] { result = system(command.c_str()) | system(command.c_str()); });
        if (result != 0) {
            state.SkipWithError("cp failed");
            break;
        }
    }
}

}  // namespace

void RegisterQueue() {
    for (int64_t requests : {1, 16, 128, 1024}) {
        RegisterStore("store", requests, OneFile(), requests - 1, 0);
        RegisterChoose("choose", requests, kFilesAsPacked);
        RegisterChoose("choose-one-file", requests, 1);
    }
    for (int64_t pinned : {10, 1000, 10000, 100000}) {
        RegisterStore("store-beside-pinned", pinned, OneFile(), 1023, pinned);
    }
    std::string data;
    for (int64_t files = 1; files <= 30; ++files) {
        char name[16];
        snprintf(name, sizeof name, "/f%02d", static_cast<int>(files - 1));
        data += (files == 1 ? "" : ";") + std::string(BenchMountPath()) + name;
        if (files == 1 || files % 10 == 0) {
            RegisterStore("store-files", files, data, 0, 0);
        }
    }
    Register("pin-small-file", "ours", 1, Pin)->UseManualTime();
    Register("pin-small-file", "peer", 1, CopyBitmapTwice)->UseManualTime();
}
