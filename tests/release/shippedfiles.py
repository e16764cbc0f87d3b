"""The shipped files of release/nginx/updates/, and edits of them."""

from pathlib import Path

FOLDER = Path(__file__).resolve().parents[2] / "release" / "nginx" / "updates"


def shipped(name: str) -> str:
    """The text of a file as it is shipped."""
    return (FOLDER / name).read_text(encoding="utf-8")


def changed(text: str, old: str, new: str) -> str:
    """The text with one thing in it changed, which must be there exactly once."""
    if text.count(old) != 1:
        raise ValueError(f"expected once: {old}")
    return text.replace(old, new)


def behind_load_balancer(address: str) -> str:
    """clients.conf where requests from this address carry the client's own one in a header."""
    return changed(
        shipped("clients.conf"),
        "#     set_real_ip_from 192.0.2.0/24;\n"
        "#     real_ip_header X-Forwarded-For;\n"
        "#     real_ip_recursive on;\n",
        f"set_real_ip_from {address};\n"
        "real_ip_header X-Forwarded-For;\n"
        "real_ip_recursive on;\n",
    )
