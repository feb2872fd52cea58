"""What a whole device says of itself: the two bodies that tests send, bend and break."""

from __future__ import annotations

from typing import Any

NOW = "2026-11-15T21:22:14Z"

INVENTORY_BODY: dict[str, Any] = {
    "device_uid": "mac-" + "0" * 32,
    "hostname": "makieta.local",
    "display_name": "Makieta",
    "device_type": "laptop",
    "os_name": "macOS",
    "os_version": "14.5.0",
    "os_build": "23F79",
    "kernel_version": "23.5.0",
    "architecture": "arm64",
    "cpu": "Apple M2",
    "cpu_cores": 8,
    "ram_bytes": 17179869184,
    "ram_used_bytes": 9000000000,
    "disks": [
        {
            "name": "Macintosh HD",
            "mount_point": "/",
            "total_bytes": 1000,
            "free_bytes": 400,
            "used_bytes": 600,
            "file_system": "apfs",
        }
    ],
    "ip_addresses": ["192.168.1.20", "fe80::1"],
    "mac_addresses": ["a4:83:e7:00:11:22"],
    "peripherals": [
        {
            "category": "usb",
            "type": "keyboard",
            "name": "Klawiatura",
            "model": "0x0430",
            "manufacturer": "",
            "serial_number": "",
            "vendor_id": "0x3434",
            "product_id": "0x0430",
            "connection": "usb",
            "path": "USB / Klawiatura",
            "details": {"_name": "Klawiatura"},
        },
        {
            "category": "monitor",
            "type": "display",
            "name": "Monitor",
            "model": "",
            "manufacturer": "610",
            "serial_number": "",
            "connection": "display",
            "resolution": "",
            "details": {},
        },
        {
            "category": "printer",
            "type": "printer",
            "name": "Drukarka",
            "model": "",
            "serial_number": "",
            "connection": "ip",
            "ip_address": "10.0.0.9",
            "port_name": "ipp://10.0.0.9/ipp",
            "status": "idle",
            "details": {"_name": "Drukarka"},
        },
    ],
    "logged_in_user": "",
    "agent_version": "0.2.55",
    "agent_channel": "macos-native",
    "serial_number": "C02XXXXXXX",
    "manufacturer": "Apple",
    "model": "Mac14,2",
    "uptime_seconds": 3600,
    "boot_time": NOW,
    "battery": {"source": "pmset", "present": True, "percent": 80, "state": "discharging"},
    "security": {
        "source": "macos-native", "firewall": "unknown", "filevault": "On", "sip": "enabled",
    },
    "patches": {"source": "softwareupdate", "pending_raw": "", "last_update_at": None},
    "monitoring": {"source": "orv-viewer-macos-native", "collected_at": NOW},
    "audit": {
        "system_profiler": {},
        "local_users": "ola",
        "printers": "",
        "launch_daemons": ["pl.brenvox.wsparo.daemon.plist"],
        "launch_agents": [],
        "remote_capabilities": {
            "capabilities": {
                "screen_capture": True, "webrtc": True, "input": True, "clipboard": "NSPasteboard",
            },
            "notes": [
                "requires GoogleWebRTC XCFramework",
                "Accessibility/Input Monitoring permissions required",
            ],
        },
    },
    "tags": [],
    "status": "online",
    "health_status": "unknown",
    "software": [
        {
            "name": "Édit", "version": "", "publisher": "Wydawca", "installed_at": "2024-02-29",
        }
    ],
    "rustdesk_status": "not_installed",
    "rustdeskStatus": "not_installed",
    "remote": {
        "anydesk": {"provider": "anydesk", "installed": False, "configuration_paths": []},
        "teamviewer": {"provider": "teamviewer", "installed": False, "preference_paths": []},
        "rustdesk": {
            "provider": "rustdesk",
            "installed": False,
            "status": "not_installed",
            "app_path": "/Applications/RustDesk.app",
            "console_user": "",
            "config_directory": "",
            "server_launch_agent_running": False,
            "service_launch_daemon_running": False,
        },
    },
    "viewer_token": "secret",
    "viewerToken": "secret",
}

HEARTBEAT_BODY: dict[str, Any] = {
    "device_uid": INVENTORY_BODY["device_uid"],
    "hostname": INVENTORY_BODY["hostname"],
    "agent_version": INVENTORY_BODY["agent_version"],
    "agent_channel": "macos-native",
    "status": "online",
    "ip_addresses": [],
    "ram_used_bytes": 0,
    "cpu_load_percent": 12.5,
    "uptime_seconds": 5,
    "monitoring": {"update_status": None},
}
