"""What is installed: its files, its types, what it shows and needs, and the lines of its README."""

import re
import subprocess
import sys
from importlib import metadata
from pathlib import Path

import sorvel

HERE = Path(__file__).resolve().parent
INSTALLED = Path(sorvel.__file__).parent
MODULE = Path(sorvel._sorvel.__file__)


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def test_the_installed_package_is_the_one_tested():
    assert HERE.parent not in INSTALLED.parents
    assert metadata.version("sorvel") == sorvel.__version__
    files = {path.name for path in metadata.files("sorvel")}
    assert {"py.typed", "_sorvel.pyi", "LICENSE"} <= files


def test_the_module_needs_the_languages_own_libraries_and_shows_its_entrance():
    needed = re.findall(r"NEEDED.*\[(.*)\]", output("readelf", "-d", MODULE))
    assert {name.split(".so")[0] for name in needed} <= {"libstdc++", "libgcc_s", "libm", "libc", "ld-linux-x86-64"}
    shown = re.findall(r" [A-Zu] (\S+)$", output("nm", "-D", "--defined-only", MODULE), re.MULTILINE)
    assert shown == ["PyInit__sorvel"]


def test_types(tmp_path):
    user = tmp_path / "user.py"
    user.write_text(
        "import numpy as np\nimport numpy.typing as npt\nimport sorvel\n"
        "sound: npt.NDArray[np.float32] = sorvel.send('acme_1', 48000)\n"
        "for text in sorvel.listen(sound, 48000, prefix='acme', receiver='deep'):\n"
        "    end: float = text.end_s; plain: str = text; snr: float | None = text.snr_db\n"
        "heard: list[sorvel.Heard] = sorvel.Listener(48000).push(np.zeros(3, np.int16))\n"
        "sorvel.Listener(48000, receiver='depp')  # type: ignore[arg-type]\n"
        "sorvel.send(b'acme', 48000)  # type: ignore[arg-type]\n"
    )
    output(sys.executable, "-m", "mypy", "--strict", "--cache-dir", tmp_path / "cache", user)
    output(sys.executable, "-m", "mypy", "--strict", "--cache-dir", tmp_path / "cache", "-p", "sorvel")


def test_the_readmes_lines(tmp_path, monkeypatch, capsys):
    monkeypatch.chdir(tmp_path)
    for readme in (HERE.parent / "README.md", HERE.parent.parent / "README.md"):
        blocks = re.findall(r"```python\n(.*?)```", readme.read_text(), re.DOTALL)
        assert blocks
        names = {}
        for block in blocks:
            exec(compile(block, readme, "exec"), names)  # one after the other, as who reads types them
        assert "acme_1234" in capsys.readouterr().out
