"""Files on their way to a device, which stores them in the lab's directory."""

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
    assert [step.state for step in steps] == [0, 1, 1, 1, 2]
    assert [round(step.progress, 2) for step in steps] == [0, 0, 0.33, 0.67, 1]
    assert {(step.device, step.transfer, step.code) for step in steps} == {(device, transfer.number, 0)}


@pytest.mark.parametrize("size", [0, 1, 8191, 8192, 8193, 16384])
def test_sizes_at_the_edges_of_a_chunk_arrive(device, lab, size):
    content = write(lab / f"edge{size}", size)
    zel.send_file(device, PORT, str(lab / f"edge{size}"), f"edge{size}.stored").wait(20)
    assert (lab / f"edge{size}.stored").read_bytes() == content


def test_missing_file_is_over_at_once_and_holds_up_nothing(device, lab):
    missing = zel.send_file(device, PORT, lab / "missing", "x", lambda step: True)
    assert missing.done
    with pytest.raises(zel.ZelError) as raised:
        missing.wait(0)
    assert raised.value.code == zel.ErrorCode.FILE_OPEN
    write(lab / "after", 10)
    zel.send_file(device, PORT, lab / "after", "after.stored").wait(20)


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
