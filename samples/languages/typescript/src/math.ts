import { start } from './index';

export function add(a: number, b: number): number {
  return a + b;
}
