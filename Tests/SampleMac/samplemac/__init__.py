"""A folder that looks like a Mac, for development and tests."""

from .machine import SampleMac, ToolCall

__all__ = ["SampleMac", "ToolCall"]
