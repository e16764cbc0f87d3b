# SPDX-License-Identifier: MIT
"""The files of release/nginx/updates/, and changed copies."""

from pathlib import Path

FOLDER = Path(__file__).resolve().parents[2] / "release" / "nginx" / "updates"


def shipped(name: str) -> str:
    """The text of a shipped file."""
    return (FOLDER / name).read_text(encoding="utf-8")


def changed(text: str, old: str, new: str) -> str:
    """The text with OLD, which must be there exactly once, replaced by NEW."""
    if text.count(old) != 1:
        raise ValueError(f"expected once: {old}")
    return text.replace(old, new)


def behind_load_balancer(address: str) -> str:
    """clients.conf that trusts this load balancer for the client's address."""
    return changed(
        shipped("clients.conf"),
        "#     set_real_ip_from 192.0.2.0/24;\n"
        "#     real_ip_header X-Forwarded-For;\n"
        "#     real_ip_recursive on;\n",
        f"set_real_ip_from {address};\n"
        "real_ip_header X-Forwarded-For;\n"
        "real_ip_recursive on;\n",
    )
