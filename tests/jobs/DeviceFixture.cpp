#include "tests/jobs/DeviceFixture.h"

#include "tests/support/Files.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace veltrin::test {

namespace fs = std::filesystem;

DeviceFixture::DeviceFixture(const std::string &busConfiguration) : PrinterFixture(busConfiguration) {
    fs::remove_all(folder);
    fs::remove_all(serverBin);
    fs::create_directory(folder);
    fs::permissions(folder, fs::perms(0777)); // for whatever user the backend has
    installBackend("test", hostPath(DEVICE_BACKEND));
    setRecord();
}

DeviceFixture::~DeviceFixture() {
    fs::remove_all(folder);
    fs::remove_all(serverBin);
}

void DeviceFixture::setRecord(const std::function<void(ReverseRecord &)> &change) {
    ReverseRecord record{};
    record.dwFlag = reverseRecordTag;
    record.dwHeaderRemainMemory = 0x80000;
    record.dwImageRemainMemory = 0x1000000;
    record.TonerKStatus = record.TonerCStatus = record.TonerMStatus = record.TonerYStatus = 80;
    record.installBits = 0x80; // a duplex unit
    change(record);
    std::string bytes(sizeof record, '\0');
    std::memcpy(bytes.data(), &record, sizeof record);
    // At once, so that the device does not find half of it.
    writeFile(std::string(folder) + "/new record", bytes);
    fs::rename(std::string(folder) + "/new record", std::string(folder) + "/record");
}

void DeviceFixture::installBackend(const std::string &name, const std::string &program) {
    const fs::path backends = fs::path(serverBin) / "backend";
    fs::create_directories(backends);
    fs::permissions(backends, fs::perms(0755));
    fs::copy_file(program, backends / name);
    fs::permissions(backends / name, fs::perms(0755)); // root starts only what root alone can change
}

Command DeviceFixture::backendCommand(const std::string &device) const {
    const std::string deviceUri = device.empty() ? uri : "veltrin:test:" + device;
    return {.program = hostPath(VELTRIN_BACKEND),
            .arguments = {deviceUri, "7", "user", "title", "1", "options"},
            .environment = {{{"DEVICE_URI", deviceUri},
                             {"CUPS_SERVERBIN", serverBin},
                             {"DBUS_SYSTEM_BUS_ADDRESS", std::getenv("DBUS_SYSTEM_BUS_ADDRESS")}}},
            .input = Pipe()};
}

void DeviceFixture::startBackend(const std::string &device) {
    uri = "veltrin:test:" + device;
    printer.emplace(backendCommand());
    ASSERT_TRUE(says(*printer, "DEBUG: listening\n")) << printer->errors();
}

std::string DeviceFixture::printedByDevice() {
    return fs::exists(printedFile) ? readFile(printedFile) : std::string();
}

} // namespace veltrin::test
