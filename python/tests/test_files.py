"""Files on their way to a device, which stores them in the lab's directory."""

import os
import subprocess
import sys

import pytest
import zel

PORT = 700


def write(path, size):
    content = bytes((i * 31 + i // 8192) % 256 for i in range(size))
    path.write_bytes(content)
    return content


def test_file_arrives_and_progress_is_told(device, lab):
    content = write(lab / "three", 20000)
    steps = []
    transfer = zel.send_file(device, PORT, lab / "three", "three.stored", steps.append)
    transfer.wait(20)
    assert transfer.done
    assert (lab / "three.stored").read_bytes() == content
    assert [step.state for step in steps] == [1, 1, 1, 2]
    assert [step.sent for step in steps] == [0, 8192, 16384, 20000]
    assert [round(step.progress, 2) for step in steps] == [0, 0.41, 0.82, 1]
    assert {step.total for step in steps} == {20000}
    assert {(step.device, step.transfer, step.code) for step in steps} == {(device, transfer.number, 0)}


@pytest.mark.parametrize("size", [0, 1, 8191, 8192, 8193, 16384])
def test_sizes_at_the_edges_of_a_chunk_arrive(device, lab, size):
    content = write(lab / f"edge{size}", size)
    zel.send_file(device, PORT, str(lab / f"edge{size}"), f"edge{size}.stored").wait(20)
    assert (lab / f"edge{size}.stored").read_bytes() == content


def test_missing_file_is_over_at_once_and_holds_up_nothing(device, lab):
    steps = []
    missing = zel.send_file(device, PORT, lab / "missing", "x", steps.append)
    assert missing.done
    assert missing.number == 0
    assert [(step.state, step.code) for step in steps] == [(zel.FileState.FAILED, zel.ErrorCode.FILE_OPEN)]
    with pytest.raises(zel.ZelError) as raised:
        missing.wait(0)
    assert raised.value.code == zel.ErrorCode.FILE_OPEN
    write(lab / "after", 10)
    zel.send_file(device, PORT, lab / "after", "after.stored").wait(20)


@pytest.mark.skipif(sys.platform == "win32", reason="no pipes in folders")
def test_pipe_is_refused_at_once(device, lab):
    os.mkfifo(lab / "pipe")
    with pytest.raises(zel.ZelError) as raised:
        zel.send_file(device, PORT, lab / "pipe", "x").wait(0)
    assert raised.value.code == zel.ErrorCode.FILE_OPEN


def test_paths_are_taken_as_the_system_has_them(device, lab):
    content = write(lab / "Prüfung 日.bin", 10)
    zel.send_file(device, PORT, lab / "Prüfung 日.bin", "named.stored").wait(20)
    assert (lab / "named.stored").read_bytes() == content


def test_path_with_a_nul_is_refused(device):
    with pytest.raises(ValueError):
        zel.send_file(device, PORT, "a\0b", "x")
    with pytest.raises(ValueError):
        zel.send_file(device, PORT, "a", "x\0y")


def test_device_error_is_the_end(device, lab):
    write(lab / "refused", 20000)
    steps = []
    with pytest.raises(zel.ZelDeviceError) as raised:
        zel.send_file(device, 601, lab / "refused", "x", steps.append).wait(20)
    assert raised.value.code == 5
    assert [(step.state, step.code) for step in steps] == [(zel.FileState.FAILED, 5)]


def test_silence_is_a_network_failure(device, lab):
    write(lab / "unheard", 20000)
    with pytest.raises(zel.ZelError) as raised:
        zel.send_file(device, 602, lab / "unheard", "x").wait(20)
    assert raised.value.code == zel.ErrorCode.FILE_TRANSFER


def test_shrinking_file_is_told_of(device, lab):
    write(lab / "shrinking", 50000)

    def cut(step):
        if step.sent == 8192:
            os.truncate(lab / "shrinking", 10000)

    with pytest.raises(zel.ZelError) as raised:
        zel.send_file(device, PORT, lab / "shrinking", "shrinking.stored", cut).wait(20)
    assert raised.value.code == zel.ErrorCode.FILE_CHANGED


def test_negative_wait_is_refused_and_an_endless_one_is_not(device, lab):
    write(lab / "waited", 8192)
    transfer = zel.send_file(device, PORT, lab / "waited", "waited.stored")
    with pytest.raises(ValueError):
        transfer.wait(-1)
    transfer.wait(float("inf"))


def test_cancel_ends_it(device, lab):
    write(lab / "cancelled", 400 * 8192)
    transfers = [zel.send_file(device, PORT, lab / "cancelled", f"cancelled{i}.stored") for i in range(3)]
    for transfer in transfers:
        transfer.cancel()
    for transfer in transfers:
        with pytest.raises(zel.ZelError) as raised:
            transfer.wait(20)
        assert raised.value.code == zel.ErrorCode.CANCELLED


def test_transfers_under_way_hold_up_no_exit(device, lab):
    write(lab / "endless", 1 << 24)
    program = f"""
import zel
for i in range(5):
    zel.send_file("{device}", {PORT}, r"{lab / "endless"}", f"endless{{i}}.stored", lambda step: None)
"""
    subprocess.run([sys.executable, "-c", program], timeout=20, check=True)


def test_callback_stops_the_transfer(device, lab):
    write(lab / "stopped", 10 * 8192)
    transfer = zel.send_file(device, PORT, lab / "stopped", "stopped.stored", lambda step: step.progress < 0.25)
    with pytest.raises(zel.ZelError) as raised:
        transfer.wait(20)
    assert raised.value.code == zel.ErrorCode.CANCELLED
    assert not (lab / "stopped.stored").exists()


def test_exception_stops_the_transfer_and_is_raised(device, lab):
    write(lab / "raised", 10 * 8192)

    def progress(step):
        if step.state == zel.FileState.GOING_ON:
            raise LookupError("mine")

    with pytest.raises(LookupError):
        zel.send_file(device, PORT, lab / "raised", "raised.stored", progress).wait(20)


def test_absent_device_is_a_network_failure(lab):
    write(lab / "nowhere", 10)
    with pytest.raises(zel.ZelError) as raised:
        zel.send_file("127.0.0.9.0.1", PORT, lab / "nowhere", "x").wait(20)
    assert raised.value.code == zel.ErrorCode.FILE_TRANSFER
