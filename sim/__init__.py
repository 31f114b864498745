# SPDX-License-Identifier: MIT
"""Simulated gateway: look-alikes of NetworkManager and ModemManager for demo and tests."""
