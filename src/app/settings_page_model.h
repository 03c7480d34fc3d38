#pragma once
#include <optional>
#include <string>
#include <vector>

#include "app/controls.h"

namespace duskwell {

class AwakeController;

struct IntegrationRowModel {
    std::string symbol;
    std::string tint;
    std::string title;
    std::string state;  // "Connected · hooks", "Not installed", "Not connected · estimated from activity"
    ToggleRow toggle;   // title and subtitle repeat the row; `on` is the integration
    bool operator==(const IntegrationRowModel&) const = default;
};

struct IntegrationSectionModel {
    std::string title;
    std::string note;
    std::vector<IntegrationRowModel> rows;  // one per kind that supports hooks
    bool operator==(const IntegrationSectionModel&) const = default;
};

struct InfoRowModel {
    std::string symbol;
    std::string title;
    std::string subtitle;
    std::string value;             // "⌥⌘L", "Installed", "Allowed"
    std::optional<Button> button;  // "Install", "Remove", "Open", ...
    bool operator==(const InfoRowModel&) const = default;
};

struct PhoneSectionModel {
    ToggleRow toggle;  // "Phone alerts"
    // The rest only while enabled.
    std::vector<std::string> steps;     // numbered instruction lines
    std::optional<std::string> qrText;  // the subscribe address the QR code encodes
    int qrSize = 88;                    // points
    std::optional<Button> test;
    std::optional<Button> copy;
    std::optional<std::string> lastResult;
    std::vector<std::string> features;
    // The ntfy server the alerts go through and whether an access token is set (never the
    // token), with "Change".
    std::optional<InfoRowModel> server;
    bool operator==(const PhoneSectionModel&) const = default;
};

struct PickerOption {
    std::string title;  // "Off", "10%"
    int value = 0;
    Action action;
    bool operator==(const PickerOption&) const = default;
};

struct BehaviorSectionModel {
    std::string title;
    std::vector<ToggleRow> toggles;  // performance, lock, heat, login, in that order
    // Battery guard row with its picker.
    std::string batterySymbol;
    std::string batteryTitle;
    std::string batterySubtitle;
    std::vector<PickerOption> batteryOptions;
    int batterySelected = 0;
    bool operator==(const BehaviorSectionModel&) const = default;
};

struct ShortcutSectionModel {
    std::string title;
    std::string note;
    InfoRowModel hotKey;
    InfoRowModel terminal;
    bool operator==(const ShortcutSectionModel&) const = default;
};

struct PermissionSectionModel {
    std::string title;
    std::string note;
    InfoRowModel power;
    InfoRowModel notifications;
    bool operator==(const PermissionSectionModel&) const = default;
};

struct SettingsPageModel {
    std::string title;  // "Settings"
    Button back;
    IntegrationSectionModel integration;
    PhoneSectionModel phone;
    BehaviorSectionModel behavior;
    ShortcutSectionModel shortcuts;
    PermissionSectionModel permissions;
    std::optional<std::string> message;  // MessageRow: the controller's lastMessage
    std::string messageSymbol = "info.circle.fill";
    Button website;
    Button quit;
    bool operator==(const SettingsPageModel&) const = default;
};

// Battery guard picker values: "Off", then percentages.
const std::vector<int>& batteryFloorChoices();

SettingsPageModel makeSettingsPage(const AwakeController& c);

}  // namespace duskwell
