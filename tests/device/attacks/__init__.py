# SPDX-License-Identifier: Apache-2.0
"""The attacks, one a file. See attacking.py."""
