"""The shipped files of release/nginx/updates/, edited as a release engineer would."""

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


def rollout(*rules: str, share: str = "100%", kill_switch: str = "off", salt: str = "2.1.3") -> str:
    """rollout.conf with these rules by version before the default."""
    text = changed(shipped("rollout.conf"), "100%  offer;", f"{share}  offer;")
    text = changed(text, "first release $client_network", f"{salt} $client_network")
    text = changed(text, "default  off;", f"default  {kill_switch};")
    return changed(text, "default  $share;", "\n    ".join(["default  $share;", *rules]))
