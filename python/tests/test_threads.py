import _thread
import datetime
import faulthandler
import signal
import threading
import time

import numpy as np
import pytest

import sorvel
from air import END, RATE, TEXT, transmission

ENDLESS = np.broadcast_to(np.float32(0), 10**13)  # years of silence in four bytes
LONG = np.zeros(2**28, np.float32)  # and an hour and a half in memory that is never written


@pytest.fixture(autouse=True)
def never_for_ever():
    faulthandler.dump_traceback_later(60, exit=True)
    yield
    faulthandler.cancel_dump_traceback_later()


def in_threads(count, work):
    failures = []

    def run(number):
        try:
            work(number)
        except BaseException as failure:
            failures.append(failure)

    threads = [threading.Thread(target=run, args=(number,)) for number in range(count)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []


@pytest.mark.parametrize("receiver", ["classic", "deep", "messages"])
def test_one_listener_in_many_threads_loses_nothing(receiver):
    listener = sorvel.Listener(RATE, receiver=receiver)
    block = np.zeros(480, np.int16)
    in_threads(8, lambda number: [listener.push(block[: 479 + number % 2]) for _ in range(200)])
    if receiver == "messages":
        return
    (heard,) = listener.push(transmission()) + listener.finish()
    assert heard.end_s == pytest.approx(END + 200 * 4 * (479 + 480) / RATE, abs=0.15)


def test_everything_at_once_harms_nothing():
    listener = sorvel.Listener(RATE, receiver="deep")
    sound = transmission()
    calls = [lambda: listener.push(sound), listener.finish, listener.reset, lambda: listener.__init__(RATE)]
    in_threads(8, lambda number: [calls[number % 4]() for _ in range(20)])
    listener.reset()
    assert listener.push(sound) == [TEXT]


def test_listeners_and_senders_are_independent():
    def work(number):
        text = f"acme_{number}"
        receiver = "deep" if number % 2 else "classic"
        assert list(sorvel.listen(transmission(text), RATE, receiver=receiver)) == [text]

    in_threads(6, work)


# Were Python's lock held while sound is heard, the other thread could never end this.
@pytest.mark.parametrize("samples", [ENDLESS, LONG], ids=["converted", "in place"])
def test_other_threads_run_meanwhile_and_interrupt(samples):
    listener = sorvel.Listener(RATE)
    pushing = threading.Event()

    def interrupt():
        pushing.wait()
        time.sleep(0.1)  # by now it is in there
        _thread.interrupt_main()

    other = threading.Thread(target=interrupt)
    other.start()
    with pytest.raises(KeyboardInterrupt):
        pushing.set()
        listener.push(samples)
    other.join()
    listener.reset()
    assert listener.push(transmission()) == [TEXT]


def test_a_signals_handler_cannot_lock_up_what_it_interrupts():
    listener = sorvel.Listener(RATE)

    def handler(*_):
        listener.reset()

    before = signal.signal(signal.SIGALRM, handler)
    signal.setitimer(signal.ITIMER_REAL, 0.01)
    try:
        with pytest.raises(RuntimeError, match="handler"):
            listener.push(ENDLESS)
    finally:
        signal.signal(signal.SIGALRM, before)
    listener.reset()
    assert listener.push(transmission()) == [TEXT]


def test_nothing_else_passes_for_a_stream():
    for wrong in (None, 1, sorvel.Listener(RATE), datetime.datetime_CAPI):
        with pytest.raises(ValueError):
            sorvel._sorvel.push(wrong, ENDLESS)
    with pytest.raises(AttributeError):
        sorvel.Listener.__new__(sorvel.Listener).push(ENDLESS)
