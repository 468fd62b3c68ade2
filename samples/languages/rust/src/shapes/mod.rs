pub mod circle;
pub mod square;

use super::util::{self, clamp};
