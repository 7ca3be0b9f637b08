"""install_update.py BUNDLE, for 64-bit Python with the DLL beside this file."""
import ctypes
import pathlib
import sys
from ctypes import c_int32, c_uint32, c_void_p


class Options(ctypes.Structure):
    _fields_ = [("size", c_uint32), ("flags", c_uint32), ("time_limit_ms", c_uint32),
                ("restart_limit_ms", c_uint32), ("cancel_event", c_void_p)]


class Answer(ctypes.Structure):
    _fields_ = [("size", c_uint32), ("status", c_int32), ("installer_exit_code", c_int32),
                ("rpc_status", c_uint32), ("restart", c_uint32)]


def main():
    client = ctypes.WinDLL(str(pathlib.Path(__file__).resolve().with_name("ZarnUpdateClient.dll")))
    options = Options(ctypes.sizeof(Options), flags=1, time_limit_ms=3600 * 1000)  # 1: wait for the restart
    answer = Answer(ctypes.sizeof(Answer))
    words = ctypes.create_unicode_buffer(512)
    bundle = ctypes.c_wchar_p(sys.argv[1] if len(sys.argv) == 2 else "")
    result = client.zarn_update_install(bundle, ctypes.byref(options), ctypes.byref(answer))
    if result != 0:
        client.zarn_update_describe_result(result, words, 512)
        print("no answer:", words.value)
        return 2 if result in (7, 8, 12) else 1  # 2: nobody knows what was done
    client.zarn_update_describe_status(answer.status, words, 512)
    print(f"status {answer.status}, {words.value}")
    return 0 if answer.status in (0, 30000, 30001) else 1


if __name__ == "__main__":
    sys.exit(main())
