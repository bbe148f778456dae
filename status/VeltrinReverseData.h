#pragma once

#include "platform/Bundle.h"
#include "status/ConditionLock.h"
#include "status/ReverseRecord.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace veltrin {

/// The printer's state as it last reported it: keeps the last reverse status record, gives its fields, and
/// names what its codes mean.
///
/// One thread may store records while others read them. Every accessor waits, without a limit, until the
/// first record has arrived, and takes the lock for its one field only, so that two accessors in a row may
/// read two different records. On the thread that stores the records nobody would end such a wait: it takes a
/// `snapshot`.
class VeltrinReverseData {
  public:
    /// Names are looked up in `bundle`, which must outlive the object. It is not guarded: names are asked for
    /// on one thread.
    explicit VeltrinReverseData(platform::Bundle &bundle);

    /// Stores a record as it came from the printer, and logs it where it differs from the one before. Returns
    /// false and keeps the record before where `data` is not 64 bytes that begin with "GDIR"; no other field
    /// is examined.
    [[nodiscard]] bool setData(std::span<const std::byte> data);

    /// Whether a record has ever arrived. Does not wait for one.
    [[nodiscard]] bool hasRecord() const;

    /// The record as a whole, without waiting for one: all zero as long as none has arrived, which says of
    /// the printer that it has no duplex unit, no paper and no memory, and listens to our port.
    [[nodiscard]] ReverseRecord snapshot() const;

    /// Writes the record to the debug log.
    void dump() const;

    // The fields, under the names that clients know them by.

    /// How the printer is connected: 0 hot port switching, 1 LPT, 2 USB 1.1, 3 USB 2.0, 4 network.
    [[nodiscard]] std::uint32_t port() const { return read(&ReverseRecord::bPortName); }

    [[nodiscard]] bool recoverFlag() const { return readFlag(RecoverFlag); }

    [[nodiscard]] bool readyToReceive() const { return readFlag(ReceiveState); }

    /// Whether the job was cancelled on the front panel, as the bit named `reserve_bit2` tells it;
    /// `panelCancelJob` is not consulted.
    [[nodiscard]] bool frontPanelCancel() const { return readFlag(reserve_bit2); }

    [[nodiscard]] std::uint32_t modelInfo() const { return read(Model_Info); }

    [[nodiscard]] std::uint32_t marketInfo() const { return read(Market_Info); }

    [[nodiscard]] std::uint32_t receivingJobId() const { return read(&ReverseRecord::receivingJobId); }

    [[nodiscard]] std::uint32_t printingJobId() const { return read(&ReverseRecord::printingJobId); }

    /// Free memory for headers, in bytes.
    [[nodiscard]] std::uint32_t headerMemory() const { return read(&ReverseRecord::dwHeaderRemainMemory); }

    /// Free memory for band data, in bytes.
    [[nodiscard]] std::uint32_t imageMemory() const { return read(&ReverseRecord::dwImageRemainMemory); }

    [[nodiscard]] std::uint32_t remainingPages() const { return read(&ReverseRecord::wRemainPage); }

    [[nodiscard]] std::uint32_t statusCode() const { return read(&ReverseRecord::bPrinterStatus); }

    [[nodiscard]] std::uint32_t subStatusCode1() const { return read(&ReverseRecord::bSubStatus1); }

    [[nodiscard]] std::uint32_t subStatusCode2() const { return read(&ReverseRecord::bSubStatus2); }

    [[nodiscard]] std::uint32_t jobCount() const { return read(&ReverseRecord::bTotalJobNum); }

    /// Installed memory, in bytes.
    [[nodiscard]] std::uint32_t totalMemory() const { return read(&ReverseRecord::bConfigureMemory) << 16; }

    [[nodiscard]] bool duplexInstalled() const { return readFlag(DuplexInstall); }

    /// Never true for model 0, whatever the record says of its second tray.
    [[nodiscard]] bool tray2Installed() const;

    [[nodiscard]] bool bypassPaperEmpty() const { return readFlag(BypassEmpty); }

    [[nodiscard]] bool tray1PaperEmpty() const { return readFlag(Tray1Empty); }

    [[nodiscard]] bool tray2PaperEmpty() const { return readFlag(Tray2Empty); }

    [[nodiscard]] std::uint32_t bypassPaperSize() const { return read(&ReverseRecord::BypassTrayPaperSize); }

    [[nodiscard]] std::uint32_t tray1PaperSize() const { return read(&ReverseRecord::Tray1PaperSize); }

    [[nodiscard]] std::uint32_t tray2PaperSize() const { return read(&ReverseRecord::Tray2PaperSize); }

    [[nodiscard]] std::uint32_t bypassPaperType() const { return read(&ReverseRecord::BypassType); }

    [[nodiscard]] std::uint32_t tray1PaperType() const { return read(&ReverseRecord::Tray1Type); }

    [[nodiscard]] std::uint32_t tray2PaperType() const { return read(&ReverseRecord::Tray2Type); }

    [[nodiscard]] std::uint32_t tonerCStatus() const { return read(&ReverseRecord::TonerCStatus); }

    [[nodiscard]] std::uint32_t tonerMStatus() const { return read(&ReverseRecord::TonerMStatus); }

    [[nodiscard]] std::uint32_t tonerYStatus() const { return read(&ReverseRecord::TonerYStatus); }

    [[nodiscard]] std::uint32_t tonerKStatus() const { return read(&ReverseRecord::TonerKStatus); }

    [[nodiscard]] std::uint32_t totalTextEmission() const { return read(&ReverseRecord::totalTextEmission); }

    [[nodiscard]] std::uint32_t totalGraphicsEmission() const {
        return read(&ReverseRecord::totalGraphicEmission);
    }

    [[nodiscard]] std::uint32_t totalImagesEmission() const {
        return read(&ReverseRecord::totalImageEmission);
    }

    [[nodiscard]] bool USBWarning() const { return readFlag(USB_warn); }

    [[nodiscard]] bool NetworkWarning() const { return readFlag(NW_warn); }

    [[nodiscard]] bool WasteTonerWarning() const { return readFlag(Waste_warn); }

    [[nodiscard]] bool TransferBeltWarning() const { return readFlag(Transfer_warn); }

    [[nodiscard]] bool TMACleaningWarning() const { return readFlag(TMA_warn); }

    [[nodiscard]] bool FuserWarning() const { return readFlag(Fuser_warn); }

    /// The paper type code in tray 1, tray 2 or the bypass tray (3); 0 for any other tray.
    [[nodiscard]] std::uint32_t paperTypeForTray(std::uint32_t tray) const;

    /// The tray to be used in place of tray 1, 2 or 3. Any other tray is logged and gives 0.
    [[nodiscard]] static std::uint32_t priorityTrayForTargetTray(std::uint32_t targetTray);

    // The names. All but the media type are in the user's language.

    /// What the printer says about itself, empty where there is nothing to say, with `severity` 0
    /// (information, or something for the operator to do) or 2 (fatal).
    [[nodiscard]] std::string statusString(std::int32_t &severity) const;

    [[nodiscard]] std::string paperSizeString(std::uint32_t code) const;
    [[nodiscard]] std::string paperTypeString(std::uint32_t code) const;
    [[nodiscard]] std::string paperTrayString(std::uint32_t code) const;

    /// The fixed name of a paper type code, never translated.
    [[nodiscard]] static std::string mediaTypeString(std::int32_t code);

    /// The model's code name and its name in the shops; empty, without waiting, before the first record.
    [[nodiscard]] std::string modelInfoString() const;
    [[nodiscard]] std::string modelInfoDescription() const;

  private:
    enum Condition : int { waitingForRecord = 0, recordArrived = 1 };

    template <typename Field>
    [[nodiscard]] std::uint32_t read(Field ReverseRecord::*field) const {
        return whenRecordArrived(
            [field](const ReverseRecord &record) { return std::uint32_t{record.*field}; });
    }

    [[nodiscard]] std::uint32_t read(BitField field) const {
        return whenRecordArrived([field](const ReverseRecord &record) { return field.valueIn(record); });
    }

    [[nodiscard]] bool readFlag(BitField field) const { return read(field) != 0; }

    template <typename Reader>
    [[nodiscard]] std::uint32_t whenRecordArrived(Reader reader) const {
        reverseLock.lockWhenCondition(recordArrived);
        const std::uint32_t value = reader(reverseData);
        reverseLock.unlock();
        return value;
    }

    platform::Bundle &bundle;

    mutable ConditionLock reverseLock{waitingForRecord};
    ReverseRecord reverseData{};

    // The two fields that are read without the lock. They follow `reverseData` at every record.
    std::atomic<std::uint32_t> unlockedVersion = 0;
    std::atomic<bool> unlockedTray2Install = false;
};

} // namespace veltrin
