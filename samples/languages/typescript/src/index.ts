import { add } from './math';
import type { Circle } from "./shapes/index";
import React from 'react';
import missing from './missing';
import '@lib/log';

export * from './shapes';

export async function start(): Promise<number> {
  const lazy = await import('./lazy');
  return add(lazy.x, 2);
}
